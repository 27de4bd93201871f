#pragma once

#include "support/ClipMaker.h"
#include "support/HashedPicture.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/VideoPacketDecoder.h>

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tio::test {

using DecodedPicture = ffmpeg::VideoPacketDecoder::Frame;

inline Vec<int, 2> sizeOf(const DecodedPicture& picture) {
    if (const auto rgb =
            std::dynamic_pointer_cast<tio::Frame<tio::PixelFormat::RGB>>(picture.frame))
        return rgb->size;
    return std::dynamic_pointer_cast<tio::Frame<tio::PixelFormat::NV12>>(picture.frame)->size;
}

inline uint64_t hashOf(const DecodedPicture& picture) {
    return hashedPicture(*picture.frame).hash;
}

class VideoPacketDecoderTest : public ::testing::Test {
protected:
    void openClip(const ClipPlan& plan = {}) {
        path = folder.file("clip." + plan.format);
        makeClip(path, plan);
        openFile();
    }

    // Two clips one after the other in a single stream, whose packets tell of the change.
    void openClips(const ClipPlan& first, const ClipPlan& second) {
        Track track = encodeVideo(first);
        const auto shift = static_cast<int64_t>(track.packets.size());
        const Track following = encodeVideo(second);
        for (RawPacket later : following.packets) {
            later.pts += shift;
            later.dts += shift;
            track.packets.push_back(std::move(later));
        }
        path = folder.file("clips.ts");
        writePackets(path, "mpegts", {track});
        openFile();
    }

    static ClipPlan tsPlan(int width, int height, const std::string& pixelFormat = "yuv420p") {
        ClipPlan plan;
        plan.format = "mpegts";
        plan.width = width;
        plan.height = height;
        plan.pixelFormat = pixelFormat;
        return plan;
    }

    void openFile() {
        const auto context = std::make_shared<ffmpeg::InputFormatContext>(path);
        stream =
            std::make_unique<ffmpeg::InputStream>(context, context->findBestVideoStreamIndex());
        packet = stream->getNextPacket();
        calls() = {}; // making the clip called FFmpeg as well
        log.clear();
    }

    void setRotateTag(const char* value) const {
        auto& described = const_cast<AVStream&>(packet->getStream());
        av_dict_set(&described.metadata, "rotate", value, 0);
    }

    static void readWhatThereIs(ffmpeg::VideoPacketDecoder& decoder,
                                std::vector<DecodedPicture>& pictures) {
        for (DecodedPicture next = decoder.readNextFrame(); next.frame;
             next = decoder.readNextFrame())
            pictures.push_back(std::move(next));
    }

    void readAll(ffmpeg::VideoPacketDecoder& decoder, std::vector<DecodedPicture>& pictures) {
        for (; packet; packet = stream->getNextPacket()) {
            EXPECT_TRUE(decoder.offerPacket(packet));
            readWhatThereIs(decoder, pictures);
        }
        decoder.end();
        readWhatThereIs(decoder, pictures);
    }

    std::vector<DecodedPicture> readAll(ffmpeg::VideoPacketDecoder& decoder) {
        std::vector<DecodedPicture> pictures;
        readAll(decoder, pictures);
        return pictures;
    }

    // Compares with what libav* makes of the file without the library.
    void expectPicturesOfTheFile(const std::vector<DecodedPicture>& pictures,
                                 OracleFormat format = OracleFormat::Rgb) const {
        OracleOptions options;
        options.format = format;
        const auto expected = oracleFrames(path, options);
        ASSERT_EQ(pictures.size(), expected.size());
        for (size_t n = 0; n < expected.size(); ++n) {
            const auto time = expected[n].time();
            EXPECT_EQ(pictures[n].timestamp, ffmpeg::Rational(time.numerator, time.denominator))
                << n;
            ASSERT_EQ(sizeOf(pictures[n]), (Vec<int, 2>(expected[n].height, expected[n].width)))
                << n;
            EXPECT_EQ(hashOf(pictures[n]), expected[n].hash) << n;
        }
    }

    TemporaryFolder folder;
    std::string path;
    Interception intercepted;
    LogCapture log;
    std::unique_ptr<ffmpeg::InputStream> stream;
    std::shared_ptr<ffmpeg::InputPacket> packet; // the next one
};

} // namespace tio::test
