#include "exact/index/SourceIdentity.h"

#include <algorithm>
#include <optional>

namespace tio::ffmpeg::detail {

namespace {

constexpr uint64_t largestEnd = 65536;
constexpr uint64_t largestSample = 8192;

/// Size of the first and of the last block.
uint64_t endBlockOf(uint64_t size) {
    return std::min(largestEnd, std::max<uint64_t>(size / 2, 1));
}

uint64_t lastHashOf(SourceBytes& bytes, uint64_t block) {
    return bytes.hashAt(bytes.size() > block ? bytes.size() - block : 0, block);
}

/// What lies between the two blocks is cut into as many parts of one size, and each gives its
/// middle, or all of it where it is no larger than a sample.
std::vector<uint64_t> samplesOf(SourceBytes& bytes) {
    const uint64_t block = endBlockOf(bytes.size());
    const uint64_t between = bytes.size() > 2 * block ? bytes.size() - 2 * block : 0;
    const auto cut = [&](uint64_t part) { // without a product that could overflow
        constexpr uint64_t parts = SourceIdentity::sampleCount;
        return block + between / parts * part + between % parts * part / parts;
    };
    std::vector<uint64_t> samples;
    for (uint64_t part = 0; part < SourceIdentity::sampleCount; ++part) {
        const uint64_t length = cut(part + 1) - cut(part);
        const uint64_t taken = std::min(length, largestSample);
        samples.push_back(bytes.hashAt(cut(part) + (length - taken) / 2, taken));
    }
    return samples;
}

} // namespace

SourceIdentity SourceIdentity::of(SourceBytes& bytes) {
    if (!bytes.areKnown() || bytes.size() == 0)
        return {};
    SourceIdentity found;
    const uint64_t block = endBlockOf(bytes.size());
    found.size = bytes.size();
    found.firstBlock = bytes.hashAt(0, block);
    found.lastBlock = lastHashOf(bytes, block);
    found.samples = samplesOf(bytes);
    return found;
}

SourceIdentity::Likeness SourceIdentity::compareWith(SourceBytes& bytes) const {
    if (!isKnown())
        return Likeness::Other;
    // Blocks are as large as they were, so that what has only grown still has the first one in
    // common with what it was.
    const uint64_t block = endBlockOf(size);
    const bool sameFirst = bytes.hashAt(0, block) == firstBlock;
    const bool sameLast = lastHashOf(bytes, block) == lastBlock;
    if (!sameFirst && !sameLast)
        return Likeness::Other;
    if (!sameFirst || !sameLast || bytes.size() != size)
        return Likeness::Changed;
    if (!samples.empty())
        return samples == samplesOf(bytes) ? Likeness::Same : Likeness::Changed;
    const std::optional<SourceBytes::Time>& time = bytes.lastChange();
    const bool sameTime = !time || (time->seconds == seconds && time->nanoseconds == nanoseconds);
    return sameTime ? Likeness::Same : Likeness::Changed;
}

} // namespace tio::ffmpeg::detail
