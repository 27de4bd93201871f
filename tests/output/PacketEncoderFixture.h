#pragma once

#include "support/Dictionary.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Muxing.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/PacketEncoder.h>

#include <algorithm>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tio::test {

/// The engine with its protected side open, on a codec that the test chooses, without a picture
/// source: the frame is grey.
class ProbeEncoder : public ffmpeg::PacketEncoder {
public:
    explicit ProbeEncoder(ffmpeg::Rational unitTime, AVCodecID codec = AV_CODEC_ID_H264)
        : ffmpeg::PacketEncoder(unitTime, codec) {
        codecContext->width = 64;
        codecContext->height = 48;
        codecContext->pix_fmt = AV_PIX_FMT_YUV420P;
    }

    using ffmpeg::PacketEncoder::codecContext;
    using ffmpeg::PacketEncoder::codecParameters;
    using ffmpeg::PacketEncoder::extradata;
    using ffmpeg::PacketEncoder::frame;

    void open(const Options& options = {{"preset", "veryfast"}}) {
        openCodec(Dictionary(options).release());
        frame = av_frame_alloc();
        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = 64;
        frame->height = 48;
        check(av_frame_get_buffer(frame, 0), "picture");
        for (int plane = 0; plane < 3; ++plane)
            std::fill_n(frame->data[plane], frame->linesize[plane] * (plane == 0 ? 48 : 24), 128);
    }
};

class PacketEncoderTest : public ::testing::Test {
protected:
    ~PacketEncoderTest() override {
        if (encoder) // a frame that nobody flushes stays
            av_frame_free(&encoder->frame);
    }

    void open(ffmpeg::Rational unitTime, const Options& options = {{"preset", "veryfast"}}) {
        encoder = std::make_unique<ProbeEncoder>(unitTime);
        encoder->open(options);
    }

    // An encoder that answers as scripted: each list holds the pts of the packets that come out
    // until it has to be asked for more.
    void scriptCodec(std::vector<std::vector<int64_t>> rounds, int lastAnswer = AVERROR(EAGAIN)) {
        script = std::move(rounds);
        intercepted->avcodec_send_frame.instead = [](AVCodecContext*, const AVFrame*) { return 0; };
        intercepted->avcodec_receive_packet.instead = [this, lastAnswer](AVCodecContext*,
                                                                         AVPacket* packet) {
            if (script.empty())
                return lastAnswer;
            if (script.front().empty()) {
                script.erase(script.begin());
                return AVERROR(EAGAIN);
            }
            check(av_new_packet(packet, 1), "packet");
            packet->pts = packet->dts = script.front().front();
            script.front().erase(script.front().begin());
            return 0;
        };
    }

    template <typename Action>
    void expectFailure(int code, int number, Action action) const {
        const std::string expected = ffmpegText(code) + placeText("PacketEncoder", number);
        EXPECT_EQ(thrownText<ffmpeg::Exception>(action), expected);
        EXPECT_THAT(ownLines(log), ::testing::ElementsAre(IsLogLine("root", 5, expected)));
    }

    static std::vector<int64_t> ptsOf(const std::vector<ffmpeg::OutputPacket>& packets) {
        std::vector<int64_t> pts;
        for (const ffmpeg::OutputPacket& packet : packets)
            pts.push_back(packet.getPacket().pts);
        return pts;
    }

    static std::vector<int64_t> durationsOf(const std::vector<ffmpeg::OutputPacket>& packets) {
        std::vector<int64_t> durations;
        for (const ffmpeg::OutputPacket& packet : packets)
            durations.push_back(packet.getPacket().duration);
        return durations;
    }

    // Encodes frames at these ticks, and everything that is left.
    std::vector<ffmpeg::OutputPacket> encodeAll(const std::vector<int64_t>& times) const {
        std::vector<ffmpeg::OutputPacket> all;
        const auto keep = [&all](const std::vector<ffmpeg::OutputPacket>& packets) {
            for (const ffmpeg::OutputPacket& packet : packets)
                all.emplace_back(packet);
        };
        for (const int64_t time : times)
            keep(encoder->encodeFrameAt(ffmpeg::Rational(time, 1) * encoder->getUnitTime()));
        keep(encoder->flush());
        return all;
    }

    Interception intercepted;
    LogCapture log;
    std::unique_ptr<ProbeEncoder> encoder;
    std::vector<std::vector<int64_t>> script;
};

} // namespace tio::test
