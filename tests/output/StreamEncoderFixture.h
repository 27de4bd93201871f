#pragma once

#include "support/EncoderInput.h"
#include "support/WritingTest.h"

#include <TARN/videoio/AudioStreamEncoder.h>
#include <TARN/videoio/VideoStreamEncoder.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace tio::test {

inline constexpr int mono = 4;
inline constexpr int stereo = 3;

class StreamEncoderTest : public WritingTest {
protected:
    std::unique_ptr<ffmpeg::VideoStreamEncoder>
    makeVideo(ffmpeg::Rational timeBase = ffmpeg::Rational(1, 25)) const {
        return std::make_unique<ffmpeg::VideoStreamEncoder>(context, tio::Vec<int, 2>(48, 64),
                                                            timeBase);
    }
    std::unique_ptr<ffmpeg::AudioStreamEncoder>
    makeAudio(int layout = stereo, int rate = 48000,
              ffmpeg::Rational timeBase = ffmpeg::Rational()) const {
        return std::make_unique<ffmpeg::AudioStreamEncoder>(context, layout, rate, timeBase);
    }

    static void writePictures(ffmpeg::VideoStreamEncoder& video, int64_t from, int64_t to) {
        for (int64_t i = from; i < to; ++i)
            video.writeNextFrame(plainImage(48, 64), ffmpeg::Rational(i, 25));
    }
    static void writeSound(ffmpeg::AudioStreamEncoder& audio, int64_t from, int64_t to) {
        for (int64_t i = from; i < to; ++i)
            audio.writeNextFrame(numberedBlock(1024, 2), ffmpeg::Rational(1024 * i, 48000));
    }

    // Swallows the frames and notes their times.
    void noteTimes() {
        intercepted->avcodec_send_frame.instead = [this](AVCodecContext*, const AVFrame* frame) {
            if (frame != nullptr)
                times.push_back(frame->pts);
            return 0;
        };
        intercepted->avcodec_receive_packet.instead = [](AVCodecContext*, AVPacket*) {
            return AVERROR(EAGAIN);
        };
    }

    // Answers every frame with one packet of its time, so that nothing is left for the flush.
    void encodeAtOnce() {
        intercepted->avcodec_send_frame.instead = [this](AVCodecContext*, const AVFrame* frame) {
            if (frame != nullptr)
                times.push_back(frame->pts);
            return 0;
        };
        intercepted->avcodec_receive_packet.instead = [this](AVCodecContext*, AVPacket* packet) {
            if (times.empty())
                return AVERROR(EAGAIN);
            check(av_new_packet(packet, 1), "packet");
            packet->data[0] = static_cast<uint8_t>(times.front());
            packet->pts = packet->dts = times.front();
            times.erase(times.begin());
            return 0;
        };
    }

    std::vector<int64_t> times;
};

using StreamEncoderDeathTest = StreamEncoderTest;

} // namespace tio::test
