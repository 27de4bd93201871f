#include "Survey.h"

#include "Entries.h"

#include <algorithm>
#include <cstddef>

namespace tio::survey {

namespace {

std::string firstDifference(const Facts& ours, const Facts& direct) {
    const std::size_t both = std::min(ours.size(), direct.size());
    const auto [mine, theirs] = std::mismatch(
        ours.begin(), ours.begin() + static_cast<std::ptrdiff_t>(both), direct.begin());
    if (ours.size() == direct.size()) {
        std::size_t unequal = 0;
        for (std::size_t i = 0; i < both; ++i)
            unequal += ours[i] != direct[i] ? 1 : 0;
        return std::to_string(unequal) + " of " + std::to_string(both) +
               " lines, the first: " + *mine + " instead of " + *theirs;
    }
    const std::string extra = ours.size() > both ? ours[both] : direct[both];
    return std::to_string(ours.size()) + " lines instead of " + std::to_string(direct.size()) +
           "; the first that is too many or missing: " + extra;
}

bool isBeginOf(const Facts& whole, const Facts& part) {
    return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

} // namespace

std::string nameOf(Outcome outcome) {
    switch (outcome) {
    case Outcome::Equal:
        return "equal";
    case Outcome::Refused:
        return "refused";
    default:
        return "differs";
    }
}

Verdict judge(const Account& ours, const Account& direct) {
    if (ours.foreign)
        return {Outcome::Differs, "an exception that is not ours: " + *ours.failure};
    if (ours.facts != direct.facts)
        return {Outcome::Differs, firstDifference(ours.facts, direct.facts) +
                                      (ours.failure ? "; ended by: " + *ours.failure : "") +
                                      (direct.failure ? "; FFmpeg's by: " + *direct.failure : "")};
    if (ours.failure && !direct.failure)
        return {Outcome::Differs, "throws where FFmpeg does not fail: " + *ours.failure};
    if (!ours.failure && direct.failure)
        return {Outcome::Differs, "does not throw where FFmpeg fails: " + *direct.failure};
    if (ours.failure)
        return {Outcome::Refused, *ours.failure};
    return {Outcome::Equal, std::to_string(ours.facts.size()) + " lines"};
}

Verdict judgeDecoding(const Account& ours, const Account& direct) {
    const bool brokeOff = ours.failure && !ours.foreign && isBeginOf(direct.facts, ours.facts);
    if (!brokeOff)
        return judge(ours, direct);
    return {Outcome::Refused, "after " + std::to_string(ours.facts.size()) + " of " +
                                  std::to_string(direct.facts.size()) + ": " + *ours.failure};
}

const std::vector<EntryPoint>& entryPoints() {
    static const std::vector<EntryPoint> all = {
        {"open", open},
        {"open with options", openWithOptions},
        {"info", info},
        {"packets", packets},
        {"decode RGB", decodeRgb},
        {"decode NV12", decodeNv12},
        {"packet decoder", packetDecoder},
        {"decode sound", decodeSound},
        {"index", index},
        {"index of sound", soundIndex},
        {"seek", seek},
        {"seek in sound", seekInSound},
        {"stored index", storedIndex},
        {"frame reader", frameReader},
        {"frame reader, checksums", provenFrameReader},
        {"frame index file", frameIndexFile},
        {"remux", remux},
        {"transcode", transcode},
        {"still image", stillImage},
        {"H.264 helpers", h264Helpers},
    };
    return all;
}

} // namespace tio::survey
