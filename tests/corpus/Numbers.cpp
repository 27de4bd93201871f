#include "Decoding.h"
#include "Direct.h"
#include "Entries.h"
#include "Spread.h"

#include <TARN/videoio/AudioStreamDecoder.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>

namespace tio::survey {

namespace {

using ffmpeg::InputFormatContext;
using ffmpeg::PixelFormat;

/// The index of one stream as it follows from its packets: docs/behaviour.md has the rules.
struct DirectIndex {
    AVRational timeBase;
    std::vector<int64_t> times;
};

DirectIndex indexDirectly(const std::string& path, AVMediaType type) {
    const auto input = openDirectly(path);
    const int stream = bestStream(*input, type);
    rewind(*input, stream);
    DirectIndex index{input->streams[stream]->time_base, {}};
    int64_t last = AV_NOPTS_VALUE;
    for (const DirectPacket& packet : packetsOf(*input, stream)) {
        if ((packet.flags & AV_PKT_FLAG_DISCARD) != 0 || packet.pts == last)
            continue;
        last = packet.pts;
        index.times.push_back(last);
    }
    if (index.times.empty())
        throw std::runtime_error("no usable packets");
    std::sort(index.times.begin(), index.times.end());
    return index;
}

void tellIndex(const std::string& path, AVMediaType type, Facts& facts) {
    const DirectIndex index = indexDirectly(path, type);
    for (const int64_t time : index.times)
        facts.push_back(timeText(time, index.timeBase));
}

void tellTimes(ffmpeg::InputStream& stream, Facts& facts) {
    for (const auto& time : stream.getFrameMsMap())
        facts.push_back(timeText(time));
    if (stream.getFrameCount() != static_cast<int64_t>(facts.size()))
        facts.push_back("a count of " + std::to_string(stream.getFrameCount()));
}

Verdict indexOf(const std::string& path, AVMediaType type) {
    return judge(accountOf([&](Facts& facts) {
                     const auto input = std::make_shared<InputFormatContext>(path);
                     ffmpeg::InputStream stream(input, type == AVMEDIA_TYPE_VIDEO
                                                           ? input->findBestVideoStreamIndex()
                                                           : input->findBestAudioStreamIndex());
                     tellTimes(stream, facts);
                 }),
                 directAccountOf([&](Facts& facts) { tellIndex(path, type, facts); }));
}

std::string frameText(int64_t number, const std::string& picture) {
    return "frame " + std::to_string(number) + ": " + picture;
}

void tellSought(ffmpeg::VideoStreamDecoder& decoder, Facts& facts) {
    for (const int64_t number : spreadNumbers(decoder.getFrameCount())) {
        decoder.seek(number);
        const auto frame = decoder.readNextFrame();
        if (!frame.frame) {
            facts.push_back(frameText(number, "no picture"));
            continue;
        }
        const auto picture = hashed(*frame.frame);
        facts.push_back(frameText(number, pictureLine(timeText(frame.timestamp), picture.width,
                                                      picture.height, picture.hash)));
    }
}

void tellSoughtDirectly(const std::string& path, Facts& facts) {
    const DirectIndex index = indexDirectly(path, AVMEDIA_TYPE_VIDEO);
    std::map<int64_t, std::string> pictures;
    for (const test::OracleFrame& frame : directPictures(path)) {
        if (frame.rises)
            pictures[frame.pts] = pictureLine(frame, PixelFormat::RGB);
    }
    for (const int64_t number : spreadNumbers(static_cast<int64_t>(index.times.size()))) {
        const auto found = pictures.find(index.times[static_cast<std::size_t>(number)]);
        facts.push_back(frameText(number, found != pictures.end() ? found->second : "no picture"));
    }
}

// Its samples depend on what the decoder was given before, so only its time can be foretold.
void tellSoughtSound(const std::string& path, Facts& facts) {
    ffmpeg::AudioStreamDecoder decoder(std::make_shared<InputFormatContext>(path));
    for (const int64_t number : spreadNumbers(decoder.getFrameCount())) {
        decoder.seek(number);
        const auto block = decoder.readNextFrame();
        facts.push_back(
            frameText(number, block.samples.count != 0 ? timeText(block.timestamp) : "no block"));
    }
}

void tellSoughtSoundDirectly(const std::string& path, Facts& facts) {
    const DirectIndex index = indexDirectly(path, AVMEDIA_TYPE_AUDIO);
    for (const int64_t number : spreadNumbers(static_cast<int64_t>(index.times.size())))
        facts.push_back(frameText(
            number, timeText(index.times[static_cast<std::size_t>(number)], index.timeBase)));
}

// Times that repeat are stored, and refused when they are loaded.
void tellStorable(const std::string& path, Facts& facts) {
    const DirectIndex index = indexDirectly(path, AVMEDIA_TYPE_VIDEO);
    const bool rises =
        std::adjacent_find(index.times.begin(), index.times.end()) == index.times.end() &&
        index.times.front() != AV_NOPTS_VALUE;
    if (!rises)
        throw std::runtime_error("the times do not rise");
    for (const int64_t time : index.times)
        facts.push_back(timeText(time, index.timeBase));
}

} // namespace

std::vector<int64_t> spreadNumbers(int64_t count) {
    constexpr int64_t most = 24;
    const int64_t step = std::max<int64_t>(1, count / most);
    std::vector<int64_t> numbers;
    for (int64_t number = 0; number < count; number += step)
        numbers.push_back(number);
    if (!numbers.empty() && numbers.back() != count - 1)
        numbers.push_back(count - 1);
    std::reverse(numbers.begin(), numbers.end()); // so that each of them is sought for
    return numbers;
}

Verdict index(const std::string& path, const std::string&) {
    return indexOf(path, AVMEDIA_TYPE_VIDEO);
}

Verdict soundIndex(const std::string& path, const std::string&) {
    return indexOf(path, AVMEDIA_TYPE_AUDIO);
}

Verdict seek(const std::string& path, const std::string&) {
    return judge(accountOf([&](Facts& facts) {
                     ffmpeg::VideoStreamDecoder decoder(std::make_shared<InputFormatContext>(path),
                                                        PixelFormat::RGB);
                     tellSought(decoder, facts);
                 }),
                 directAccountOf([&](Facts& facts) { tellSoughtDirectly(path, facts); }));
}

Verdict seekInSound(const std::string& path, const std::string&) {
    return judge(accountOf([&](Facts& facts) { tellSoughtSound(path, facts); }),
                 directAccountOf([&](Facts& facts) { tellSoughtSoundDirectly(path, facts); }));
}

Verdict storedIndex(const std::string& path, const std::string& folder) {
    const std::string file = fileIn(folder, "seeking-index");
    const auto ours = accountOf([&](Facts& facts) {
        const auto first = std::make_shared<InputFormatContext>(path);
        ffmpeg::InputStream(first, first->findBestVideoStreamIndex()).storeSeekingIndex(file);
        const auto second = std::make_shared<InputFormatContext>(path);
        ffmpeg::InputStream loaded(second, second->findBestVideoStreamIndex());
        loaded.loadSeekingIndex(file);
        tellTimes(loaded, facts);
    });
    return judge(ours, directAccountOf([&](Facts& facts) { tellStorable(path, facts); }));
}

} // namespace tio::survey
