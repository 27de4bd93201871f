#include "Decoding.h"

#include "Direct.h"
#include "Entries.h"

#include <TARN/videoio/AudioStreamDecoder.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <exception>
#include <map>
#include <memory>
#include <thread>
#include <tuple>

namespace tio::survey {

namespace {

using ffmpeg::InputFormatContext;
using ffmpeg::PixelFormat;

// A decoder that is being emptied gives one picture per call, and none for one that it drops.
constexpr int mostEmptyReads = 64;
constexpr int mostFailures = 64;

/// Reads on until nothing comes any more, past whatever fails; throws only where every further call
/// fails. `read` returns whether something came.
template <typename Read>
void readToTheEnd(Read&& read) {
    int failures = 0;
    for (int empty = 0; empty < mostEmptyReads;) {
        try {
            empty = read() ? 0 : empty + 1;
            failures = 0;
        } catch (const tio::Exception&) {
            if (++failures == mostFailures)
                throw;
        }
    }
}

std::string pictureText(const ffmpeg::VideoPacketDecoder::Frame& frame) {
    const test::HashedPicture picture = hashed(*frame.frame);
    return pictureLine(timeText(frame.timestamp), picture.width, picture.height, picture.hash);
}

void tellDirectly(const std::string& path, PixelFormat format, DirectWay way, Facts& facts) {
    for (const test::OracleFrame& frame : directPictures(path, way)) {
        if (frame.rises)
            facts.push_back(pictureLine(frame, format));
    }
}

Verdict judgePictures(const std::string& path, PixelFormat format, const Account& ours) {
    const auto direct =
        directAccountOf([&](Facts& facts) { tellDirectly(path, format, {}, facts); });
    Verdict verdict = judgeDecoding(ours, direct);
    if (verdict.outcome != Outcome::Differs)
        return verdict;
    const auto again = directAccountOf([&](Facts& facts) {
        tellDirectly(path, format, {false, true}, facts);
    });
    if (again.facts != direct.facts)
        verdict.note += "; " + unsteady;
    return verdict;
}

void tellByStream(const std::string& path, PixelFormat format, Facts& facts) {
    ffmpeg::VideoStreamDecoder decoder(std::make_shared<InputFormatContext>(path), format);
    readToTheEnd([&] {
        const auto frame = decoder.readNextFrame();
        if (frame.frame)
            facts.push_back(pictureText(frame));
        return frame.frame != nullptr;
    });
}

Verdict decodeAs(const std::string& path, PixelFormat format) {
    return judgePictures(path, format,
                         accountOf([&](Facts& facts) { tellByStream(path, format, facts); }));
}

// As an application would that brings its own loop: packets in, pictures out.
void tellByPackets(const std::string& path, Facts& facts) {
    const auto input = std::make_shared<InputFormatContext>(path);
    ffmpeg::InputStream stream(input, input->findBestVideoStreamIndex());
    ffmpeg::VideoPacketDecoder decoder;
    const auto take = [&] {
        const auto frame = decoder.readNextFrame();
        if (frame.frame)
            facts.push_back(pictureText(frame));
        return frame.frame != nullptr;
    };
    auto packet = stream.getNextPacket();
    bool ended = false;
    bool failedBefore = false;
    readToTheEnd([&] {
        // A packet at which the codec fails waits and fails again; emptying the decoder leads on.
        if (failedBefore && !decoder.offerWouldBeAccepted())
            decoder.flush();
        failedBefore = true;
        if (packet && decoder.offerPacket(packet))
            packet = stream.getNextPacket();
        else if (!packet && !ended && decoder.offerWouldBeAccepted()) {
            ended = true;
            decoder.end();
        }
        const bool more = take() || packet != nullptr;
        failedBefore = false;
        return more;
    });
}

void tellSoundOfLibrary(const std::string& path, Facts& facts) {
    ffmpeg::AudioStreamDecoder decoder(std::make_shared<InputFormatContext>(path));
    readToTheEnd([&] {
        const auto block = decoder.readNextFrame();
        if (block.samples.count != 0)
            facts.push_back(soundLine(timeText(block.timestamp), block.samples.rows(),
                                      block.samples.cols(), block.sampleRate,
                                      block.samples.data()));
        return block.samples.count != 0;
    });
}

} // namespace

std::string pictureLine(const std::string& time, int width, int height, uint64_t hash) {
    return "time " + time + ", " + std::to_string(width) + "x" + std::to_string(height) +
           ", picture " + std::to_string(hash);
}

test::HashedPicture hashed(const FrameBase& frame) {
    const LibraryClock::Rest rest;
    return test::hashedPicture(frame);
}

const std::string unsteady = "FFmpeg's own pictures differ with what memory held before";

std::string pictureLine(const test::OracleFrame& frame, PixelFormat format) {
    return pictureLine(timeText(frame.pts, {frame.timeBaseNum, frame.timeBaseDen}), frame.width,
                       frame.height, format == PixelFormat::RGB ? frame.hash : frame.nv12Hash);
}

const std::vector<test::OracleFrame>& directPictures(const std::string& path, DirectWay way) {
    struct Known {
        std::vector<test::OracleFrame> pictures;
        std::exception_ptr failure;
    };
    static std::map<std::tuple<std::string, bool, bool>, Known> known;
    const bool oneThread = way.oneThread || std::thread::hardware_concurrency() == 1;
    const auto [entry, isNew] = known.try_emplace({path, oneThread, way.freshBuffers});
    Known& result = entry->second;
    if (isNew) {
        test::OracleOptions options;
        options.everyPicture = true;
        options.nv12Too = true;
        options.freshBuffers = way.freshBuffers;
        options.threads = oneThread ? 1 : 0;
        try {
            result.pictures = test::oracleFrames(path, options);
        } catch (const std::exception&) {
            result.failure = std::current_exception();
        }
    }
    if (result.failure)
        std::rethrow_exception(result.failure);
    return result.pictures;
}

Verdict decodeRgb(const std::string& path, const std::string&) {
    return decodeAs(path, PixelFormat::RGB);
}

Verdict decodeNv12(const std::string& path, const std::string&) {
    return decodeAs(path, PixelFormat::NV12);
}

Verdict packetDecoder(const std::string& path, const std::string&) {
    return judgePictures(path, PixelFormat::RGB,
                         accountOf([&](Facts& facts) { tellByPackets(path, facts); }));
}

Verdict decodeSound(const std::string& path, const std::string&) {
    return judgeDecoding(accountOf([&](Facts& facts) { tellSoundOfLibrary(path, facts); }),
                         directAccountOf([&](Facts& facts) { tellSound(path, facts); }));
}

} // namespace tio::survey
