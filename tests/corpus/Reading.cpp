#include "Decoding.h"
#include "Direct.h"
#include "Entries.h"
#include "Spread.h"

#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/InputStream.h>

#include <algorithm>
#include <memory>

namespace tio::survey {

namespace {

using ffmpeg::FrameIndex;
using ffmpeg::FrameReader;
using ffmpeg::InputFormatContext;

std::string frameText(int64_t number, int width, int height, uint64_t hash) {
    return "frame " + std::to_string(number) + ": " + std::to_string(width) + "x" +
           std::to_string(height) + ", picture " + std::to_string(hash);
}

std::string countText(int64_t count) {
    return std::to_string(count) + " frames";
}

/// What a reader says, and whether it takes the stream for damaged.
struct Reading {
    Account account;
    bool damaged = false;
};

void tellFrames(FrameReader& reader, Facts& facts) {
    for (const int64_t number : spreadNumbers(reader.frameCount())) {
        const auto picture = reader.readFrame(number);
        const auto found = hashed(*picture.frame);
        facts.push_back(frameText(number, found.width, found.height, found.hash));
    }
    facts.push_back(countText(reader.frameCount()));
}

// Damage may show only while reading: the stream is then counted again, and read by checksums.
Reading readWith(const std::string& path, const ffmpeg::FrameReaderOptions& options) {
    Reading reading;
    reading.account = accountOf([&](Facts& facts) {
        FrameReader reader(std::make_shared<InputFormatContext>(path), ffmpeg::PixelFormat::RGB,
                           options);
        const int64_t count = reader.frameCount();
        const bool damaged = reader.index().isDamaged();
        reading.damaged = damaged;
        try {
            tellFrames(reader, facts);
        } catch (const tio::Exception&) {
            if (reader.frameCount() == count)
                throw;
        }
        reading.damaged = reader.index().isDamaged();
        if (reading.damaged == damaged && reader.frameCount() == count)
            return;
        facts.clear();
        tellFrames(reader, facts);
    });
    return reading;
}

void tellDirectly(const std::string& path, DirectWay way, Facts& facts) {
    const auto& frames = directPictures(path, way);
    for (const int64_t number : spreadNumbers(static_cast<int64_t>(frames.size()))) {
        const test::OracleFrame& frame = frames[static_cast<std::size_t>(number)];
        facts.push_back(frameText(number, frame.width, frame.height, frame.hash));
    }
    facts.push_back(countText(static_cast<int64_t>(frames.size())));
}

Verdict judgeReader(const std::string& path, bool checksums) {
    ffmpeg::FrameReaderOptions options;
    options.colours = ffmpeg::Colours::Bt601; // as the direct decoding takes them
    options.checksums = checksums;
    const Reading ours = readWith(path, options);
    const auto direct =
        directAccountOf([&](Facts& facts) { tellDirectly(path, {ours.damaged}, facts); });
    Verdict verdict = judgeDecoding(ours.account, direct);
    if (verdict.outcome != Outcome::Differs)
        return verdict;
    const auto again = directAccountOf([&](Facts& facts) {
        tellDirectly(path, {ours.damaged, true}, facts);
    });
    if (again.facts != direct.facts)
        verdict.note += "; " + unsteady;
    return verdict;
}

std::string matchText(FrameIndex::Match match) {
    return "match " + std::to_string(static_cast<int>(match));
}

// Saved, loaded, exported: what comes back has to be what was made.
void tellIndexFile(const std::string& path, const std::string& folder, Facts& facts) {
    const auto input = std::make_shared<InputFormatContext>(path);
    const FrameIndex made = FrameIndex::build(input);
    const std::string file = fileIn(folder, "frame-index");
    made.save(file);
    const FrameIndex::Loaded loaded = FrameIndex::load(file, input);
    facts.push_back(matchText(loaded.match));
    facts.push_back(countText(loaded.index ? loaded.index->frameCount() : -1));
    // Read by the index that was loaded: the first and the last.
    ffmpeg::FrameReaderOptions options;
    options.colours = ffmpeg::Colours::Bt601; // as the direct decoding takes them
    options.index = loaded.index;
    FrameReader reader(input, ffmpeg::PixelFormat::RGB, options);
    if (!made.isDamaged() && reader.frameCount() > 0)
        static_cast<void>(reader.readFrame(reader.frameCount() - 1));
}

void tellIndexFileDirectly(const std::string& path, Facts& facts) {
    const std::size_t count = directPictures(path).size();
    facts.push_back(matchText(FrameIndex::Match::Fresh));
    facts.push_back(countText(static_cast<int64_t>(count)));
}

} // namespace

Verdict frameReader(const std::string& path, const std::string&) {
    return judgeReader(path, false);
}

Verdict provenFrameReader(const std::string& path, const std::string&) {
    return judgeReader(path, true);
}

Verdict frameIndexFile(const std::string& path, const std::string& folder) {
    const auto ours = accountOf([&](Facts& facts) { tellIndexFile(path, folder, facts); });
    auto direct = directAccountOf([&](Facts& facts) { tellIndexFileDirectly(path, facts); });
    // A decoder that never learns of pictures is no failure of FFmpeg's, but is one of an index.
    if (ours.failure && !direct.failure && direct.facts.back() == countText(0))
        direct = {{}, "no pictures", false};
    return judge(ours, direct);
}

} // namespace tio::survey
