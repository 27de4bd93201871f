#include "support/ClipMaker.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/PacketScript.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/StreamDecoder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using ::testing::ElementsAre;

/// Yields bare times, and counts the frames that were taken to be kept.
class TimeDecoder : public PacketDecoder {
public:
    bool next(int64_t& time) {
        if (!receiveFrame())
            return false;
        time = getFrame()->pts;
        return true;
    }

protected:
    void onCodecOpened() override {}
};

class TimeStreamDecoder : public StreamDecoder {
public:
    TimeStreamDecoder(std::shared_ptr<InputFormatContext> context, int index)
        : StreamDecoder(std::move(context), index) {}

    static constexpr int64_t none = -1000;

    int64_t read() {
        current = none;
        decodeNextFrame();
        return current;
    }

    TimeDecoder decoder;
    int framesKept = 0;

protected:
    bool frameReady() override {
        const bool got = decoder.next(current);
        framesKept += got ? 1 : 0;
        return got;
    }
    PacketDecoder& packetDecoder() override { return decoder; }

private:
    int64_t current = none;
};

// The pump against a codec that answers as scripted: one frame for each packet, `delay` packets
// later, in packet order.
class StreamDecoderTest : public ::testing::Test {
protected:
    StreamDecoderTest() {
        test::ClipPlan plan;
        plan.format = "mpegts";
        test::makeClip(clip, plan);
        context = std::make_shared<InputFormatContext>(clip);
        decoder = std::make_unique<TimeStreamDecoder>(context, 0);
    }

    void scriptCodec(size_t delay) {
        intercepted->avcodec_send_packet.instead = [this](AVCodecContext*, const AVPacket* packet) {
            if (packet == nullptr) {
                const bool again = draining;
                draining = true;
                return again ? AVERROR_EOF : 0;
            }
            if (draining)
                return AVERROR_EOF;
            inside.push_back(packet->pts);
            return 0;
        };
        intercepted->avcodec_receive_frame.instead = [this, delay](AVCodecContext*,
                                                                   AVFrame* frame) {
            if (inside.size() <= (draining ? 0 : delay))
                return draining ? AVERROR_EOF : AVERROR(EAGAIN);
            frame->pts = inside.front();
            inside.erase(inside.begin());
            return 0;
        };
        intercepted->avcodec_flush_buffers.instead = [this](AVCodecContext*) {
            inside.clear();
            draining = false;
        };
    }

    test::TemporaryFolder folder;
    std::string clip = folder.file("clip.ts");
    test::Interception intercepted;
    test::LogCapture log;
    std::shared_ptr<InputFormatContext> context;
    std::unique_ptr<TimeStreamDecoder> decoder;
    std::vector<int64_t> inside; // pts of the packets in the scripted codec
    bool draining = false;
};

TEST_F(StreamDecoderTest, YieldsOneFrameACallAndNoneAtTheEndAsOftenAsAsked) {
    scriptCodec(0);
    test::PacketScript script({{0, 0}, {1, 1}, {2, 2}});
    EXPECT_EQ(decoder->read(), 0);
    EXPECT_EQ(decoder->read(), 1);
    EXPECT_EQ(decoder->read(), 2);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(decoder->read(), TimeStreamDecoder::none);
}

TEST_F(StreamDecoderTest, DrainsWhatTheCodecStillHoldsAtTheEndOneFrameACall) {
    scriptCodec(3);
    test::PacketScript script({{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}});
    std::vector<int64_t> times;
    for (int i = 0; i < 6; ++i)
        times.push_back(decoder->read());
    EXPECT_THAT(times, ElementsAre(0, 1, 2, 3, 4, TimeStreamDecoder::none));
}

TEST_F(StreamDecoderTest, APacketThatTheDecoderRefusedIsOfferedAgain) {
    scriptCodec(0);
    test::PacketScript script({{0, 0}, {1, 1}, {2, 2}});
    // Busy for the first three packets offered to it, as a codec with frames to fetch would be.
    int busy = 3;
    const auto take = intercepted->avcodec_send_packet.instead;
    intercepted->avcodec_send_packet.instead = [&, take](AVCodecContext* codec,
                                                         const AVPacket* packet) {
        return busy-- > 0 ? AVERROR(EAGAIN) : take(codec, packet);
    };
    EXPECT_EQ(decoder->read(), 0);
    EXPECT_EQ(decoder->read(), 1);
    EXPECT_EQ(decoder->read(), 2);
    EXPECT_EQ(decoder->read(), TimeStreamDecoder::none);
}

TEST_F(StreamDecoderTest, AsksForFramesAtTheEndWhileAPacketCouldNotBeSubmitted) {
    scriptCodec(0);
    test::PacketScript script({{0, 0}});
    int busy = 5;
    const auto take = intercepted->avcodec_send_packet.instead;
    intercepted->avcodec_send_packet.instead = [&, take](AVCodecContext* codec,
                                                         const AVPacket* packet) {
        return packet != nullptr && busy-- > 0 ? AVERROR(EAGAIN) : take(codec, packet);
    };
    EXPECT_EQ(decoder->read(), 0) << "the end was declared before the packet was taken";
}

// As decoders of sound do with some damage, they fail at such a packet each time that they get it.
TEST_F(StreamDecoderTest, ReadsOnBehindAPacketThatTheCodecFailsAtOtherThanAsInvalid) {
    scriptCodec(0);
    test::PacketScript script({{0, 0}, {1, 1}, {2, 2}, {3, 3}});
    const auto take = intercepted->avcodec_send_packet.instead;
    intercepted->avcodec_send_packet.instead = [&, take](AVCodecContext* codec,
                                                         const AVPacket* packet) {
        return packet != nullptr && packet->pts == 1 ? AVERROR(EIO) : take(codec, packet);
    };
    EXPECT_EQ(decoder->read(), 0);
    EXPECT_THROW(decoder->read(), Exception);
    EXPECT_EQ(decoder->read(), 2);
    EXPECT_EQ(decoder->read(), 3);
    EXPECT_EQ(decoder->read(), TimeStreamDecoder::none);
}

TEST_F(StreamDecoderTest, SeekToZeroOnAFreshDecoderSkipsNothing) {
    scriptCodec(0);
    test::PacketScript script({{0, 0}, {1, 1}, {2, 2}});
    decoder->seek(0);
    EXPECT_EQ(intercepted->avcodec_flush_buffers.count, 1);
    EXPECT_EQ(intercepted->avcodec_receive_frame.count, 0);
    EXPECT_EQ(decoder->read(), 0);
}

TEST_F(StreamDecoderTest, SeekDecodesExactlyTheFramesOnTheWayWithoutKeepingThem) {
    scriptCodec(0);
    test::PacketScript script({{0, -3}, {1, 1}, {2, 2}, {3, 3}, {4, 4}});
    // The largest distance from dts to pts is 3, so frame 4 is reached from frame 1.
    decoder->seek(4);
    EXPECT_THAT(inside, ::testing::IsEmpty());
    EXPECT_EQ(intercepted->avcodec_send_packet.count, 3);
    EXPECT_EQ(decoder->framesKept, 0);
    EXPECT_EQ(decoder->read(), 4);
    EXPECT_EQ(decoder->framesKept, 1);
}

TEST_F(StreamDecoderTest, SeekToOrBeforeDecodesNothingAndTellsWhatIsReadNext) {
    scriptCodec(0);
    test::PacketScript script({{0, -3}, {1, 1}, {2, 2}, {3, 3}, {4, 4}});
    EXPECT_EQ(decoder->seekToOrBefore(4), 1);
    EXPECT_EQ(intercepted->avcodec_send_packet.count, 0);
    EXPECT_EQ(decoder->read(), 1);
}

TEST_F(StreamDecoderTest, SeekSkipsNothingWhenThePlaceReachedIsNotInTheIndex) {
    scriptCodec(0);
    {
        test::PacketScript script({{0, 0}, {10, 10}});
        EXPECT_EQ(decoder->getFrameCount(), 2);
    }
    test::PacketScript changed({{0, 0}, {7, 7}, {10, 8}});
    decoder->seek(1); // lands on the packet of pts 10 by its dts of 8, which is known …
    EXPECT_EQ(decoder->read(), 10);
    test::PacketScript other({{3, 3}, {7, 7}});
    decoder->seek(1); // … and here on one of pts 7, which is not
    EXPECT_EQ(decoder->read(), 7);
}

TEST_F(StreamDecoderTest, SeekingMakesFramesAvailableAgainAfterTheEnd) {
    scriptCodec(1);
    test::PacketScript script({{0, 0}, {1, 1}, {2, 2}});
    while (decoder->read() != TimeStreamDecoder::none) {
    }
    decoder->seek(1);
    EXPECT_EQ(decoder->read(), 1);
    EXPECT_EQ(decoder->read(), 2);
    EXPECT_EQ(decoder->read(), TimeStreamDecoder::none);
}

TEST_F(StreamDecoderTest, APacketRefusedBeforeASeekIsOfferedFirstAfterIt) {
    scriptCodec(0);
    test::PacketScript script({{0, 0}, {1, 1}, {2, 2}});
    EXPECT_EQ(decoder->getFrameCount(), 3);
    // The first read leaves packet 1 refused: its frame comes while packet 0 still waits inside.
    const auto take = intercepted->avcodec_send_packet.instead;
    const auto give = intercepted->avcodec_receive_frame.instead;
    intercepted->avcodec_send_packet.instead = [](AVCodecContext*, const AVPacket*) {
        return AVERROR(EAGAIN);
    };
    intercepted->avcodec_receive_frame.instead = [](AVCodecContext*, AVFrame* frame) {
        frame->pts = -1;
        return 0;
    };
    EXPECT_EQ(decoder->read(), -1);
    intercepted->avcodec_send_packet.instead = take;
    intercepted->avcodec_receive_frame.instead = give;
    decoder->seekToOrBefore(0);
    EXPECT_EQ(decoder->read(), 1) << "the packet that was waiting outside";
}

TEST_F(StreamDecoderTest, AStreamWithoutAPacketYieldsNothing) {
    test::PacketScript nothing({});
    EXPECT_EQ(decoder->read(), TimeStreamDecoder::none);
    EXPECT_EQ(decoder->read(), TimeStreamDecoder::none);
}

TEST_F(StreamDecoderTest, ALiveInputThatGoesOnAfterItsEndDoesNotHangTheReader) {
    scriptCodec(0);
    {
        test::PacketScript first({{0, 0}});
        EXPECT_EQ(decoder->read(), 0);
        EXPECT_EQ(decoder->read(), TimeStreamDecoder::none);
    }
    test::PacketScript more({{1, 1}, {2, 2}, {3, 3}});
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(decoder->read(), TimeStreamDecoder::none) << "a drained codec takes no packet";
    decoder->seek(0);
    EXPECT_NE(decoder->read(), TimeStreamDecoder::none);
}

TEST_F(StreamDecoderTest, ACodecThatFailsToOpenIsToldOnceAndThenTheStreamIsOver) {
    test::PacketScript script({{0, 0}, {1, 1}});
    intercepted->avcodec_open2.count = 0;
    intercepted->avcodec_open2.instead = [](AVCodecContext*) { return AVERROR(EINVAL); };
    EXPECT_ANY_THROW(decoder->read());
    EXPECT_EQ(script.packetsRead, 1);
    EXPECT_EQ(decoder->read(), TimeStreamDecoder::none);
    EXPECT_EQ(intercepted->avcodec_open2.count, 1);
}

TEST_F(StreamDecoderTest, ACodecThatFindsNoMemoryToOpenIsTriedAgain) {
    scriptCodec(0);
    test::PacketScript script({{0, 0}, {1, 1}});
    intercepted->avcodec_open2.instead = [](AVCodecContext*) { return AVERROR(ENOMEM); };
    EXPECT_ANY_THROW(decoder->read());
    intercepted->avcodec_open2.instead = nullptr;
    EXPECT_EQ(decoder->read(), 0);
    EXPECT_EQ(decoder->read(), 1);
}

} // namespace
} // namespace tio::ffmpeg
