#include "OutputFormatContextFixture.h"
#include "support/Muxing.h"

#include <TARN/videoio/OutputFormatContext.h>
#include <TARN/videoio/Packet.h>

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

namespace tio::ffmpeg {
namespace {

using test::makePacket;
using test::OutputFormatContextTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// The time origin

TEST_F(OutputFormatContextTest, TheFirstPacketOfTheReferenceStreamIsTimeZero) {
    test::MuxerRecord muxer;
    openWith({test::videoParameters()});
    write(0, 1, 9000, 6000);
    write(0, 2, 12600, 9600);
    EXPECT_THAT(muxer.pts(), ElementsAre(0, 3600));
    EXPECT_THAT(muxer.dts(), ElementsAre(-3000, 600));
}

TEST_F(OutputFormatContextTest, HoldsOtherStreamsUntilTheFirstVideoPacketThenWritesInOrder) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(), test::audioParameters(), test::videoParameters()});
    write(1, 1, 500);
    write(0, 2, 100);
    write(1, 3, 1524);
    EXPECT_THAT(muxer.packets, IsEmpty());
    write(2, 4, 0);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3, 4));
    write(0, 5, 1124);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3, 4, 5)) << "no longer held";
}

TEST_F(OutputFormatContextTest, ShiftsAreExactFractionsTruncatedTowardZero) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(44100), test::videoParameters()});
    ASSERT_EQ(Rational(context->getStream(0)->time_base), Rational(1, 44100));
    ASSERT_EQ(Rational(context->getStream(1)->time_base), Rational(1, 90000));
    write(0, 1, 0);
    write(0, 2, 1024);
    // -101 / 90000 × 44100 = -49.49: toward zero -49, where rounding down would give -50.
    write(1, 3, 101);
    EXPECT_THAT(muxer.pts(), ElementsAre(-49, 975, 0));
    EXPECT_THAT(muxer.dts(), ElementsAre(-49, 975, 0));
}

// 1700000000 s + 1/7 s: times the clock of the other stream, the ticks leave 64 bits.
TEST_F(OutputFormatContextTest, ShiftsOfWallClockTimesAreExact) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(96000), test::videoParameters()});
    context->getStream(1)->time_base = {7, 15360000}; // as no muxer would count
    const int64_t second = int64_t{96000} * 1700000000;
    write(0, 1, second);
    write(1, 2, 3730285714288653); // 1700000000.0013394 s
    // -3730285714288653 * 7 / 15360000 * 96000 = -163200000000128.57
    EXPECT_THAT(muxer.pts(), ElementsAre(-128, 0));
}

TEST_F(OutputFormatContextTest, AShiftSmallerThanOneTickIsNone) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(44100), test::videoParameters()});
    write(0, 1, 700);
    write(1, 2, 1); // -1 / 90000 × 44100 = -0.49
    EXPECT_THAT(muxer.pts(), ElementsAre(700, 0));
}

TEST_F(OutputFormatContextTest, AFileThatStartsBelowZeroIsShiftedUpLikewise) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(44100), test::videoParameters()});
    write(0, 1, -1024);
    write(1, 2, -101); // 101 / 90000 × 44100 = 49.49
    EXPECT_THAT(muxer.pts(), ElementsAre(-975, 0));
}

TEST_F(OutputFormatContextTest, AudioBeforeTheFirstPictureBecomesNegativeAndIsKept) {
    test::MuxerRecord muxer(test::MuxerRecord::Then::PassOn);
    openWith({test::audioParameters(), test::videoParameters()});
    write(0, 1, 0);
    write(0, 2, 1024);
    write(1, 3, 3600); // 40 ms, which are 1920 samples
    EXPECT_THAT(muxer.pts(), ElementsAre(-1920, -896, 0));
}

TEST_F(OutputFormatContextTest, TheFirstVideoStreamIsTheReferenceWhereverItIsAdded) {
    test::MuxerRecord muxer;
    openWith({test::textParameters(), test::audioParameters(), test::videoParameters(),
              test::videoParameters()});
    write(3, 1, 90000);
    write(1, 2, 48000);
    write(0, 3, 0);
    EXPECT_THAT(muxer.packets, IsEmpty());
    write(2, 4, 45000);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(muxer.pts(), ElementsAre(45000, 24000, ::testing::Lt(0), 0));
}

TEST_F(OutputFormatContextTest, WithoutVideoTheFirstAudioStreamIsTheReference) {
    test::MuxerRecord muxer;
    openWith({test::textParameters(), test::audioParameters(), test::audioParameters()});
    write(0, 1, 0);
    write(2, 2, 0);
    EXPECT_THAT(muxer.packets, IsEmpty());
    write(1, 3, -1024);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3));
    EXPECT_EQ(muxer.packets[1].pts, 1024);
    EXPECT_EQ(muxer.packets[2].pts, 0);
}

TEST_F(OutputFormatContextTest, WithNeitherVideoNorAudioStreamZeroIsTheReference) {
    test::MuxerRecord muxer;
    openWith({test::textParameters(), test::textParameters()});
    write(1, 1, 10);
    EXPECT_THAT(muxer.packets, IsEmpty());
    write(0, 2, 4);
    EXPECT_THAT(muxer.pts(), ElementsAre(6, 0));
}

TEST_F(OutputFormatContextTest, AReferencePacketWithoutATimeFlushesButLeavesTheOriginUnknown) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(), test::videoParameters()});
    write(0, 1, 0);
    write(1, 2, AV_NOPTS_VALUE);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2)) << "what was held is written all the same";
    write(0, 3, 4800);
    EXPECT_THAT(muxer.packets, SizeIs(2)) << "held again";
    write(1, 4, 9000);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(muxer.packets[2].pts, 0);
    EXPECT_EQ(muxer.packets[3].pts, 0);
}

TEST_F(OutputFormatContextTest, AnUnknownTimeIsShiftedWithoutOverflow) {
    test::MuxerRecord muxer;
    openWith({test::videoParameters()});
    write(0, 1, 100);
    write(0, 2, 3700, AV_NOPTS_VALUE);
    // The smallest integer less 100 wraps around to the largest less 99.
    EXPECT_EQ(muxer.packets[1].pts, 3600);
    EXPECT_EQ(muxer.packets[1].dts, std::numeric_limits<int64_t>::max() - 99);
}

TEST_F(OutputFormatContextTest, TheLargestTimesAreShiftedWithoutOverflow) {
    test::MuxerRecord muxer;
    openWith({test::videoParameters()});
    write(0, 1, -100);
    write(0, 2, std::numeric_limits<int64_t>::max());
    EXPECT_EQ(muxer.packets[1].pts, std::numeric_limits<int64_t>::min() + 99);
}

// A failure among the packets that wait

TEST_F(OutputFormatContextTest, AHeldPacketThatIsRefusedDoesNotTakeTheOthersAlong) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(), test::videoParameters()});
    for (uint8_t i = 1; i <= 3; ++i)
        write(0, i, 1024 * i);
    const auto swallow = intercepted->av_interleaved_write_frame.instead;
    intercepted->av_interleaved_write_frame.instead = [&](AVFormatContext* to, AVPacket* written) {
        return written->data[0] == 2 ? AVERROR(EINVAL) : swallow(to, written);
    };
    expectFailure(AVERROR(EINVAL), 188, [this] { write(1, 4, 0); });
    EXPECT_THAT(muxer.marks(), ElementsAre(1));
    write(1, 4, 0); // the caller has kept it
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 3, 4));
}

// Whose data it is

TEST_F(OutputFormatContextTest, APacketThatIsWrittenAtOnceIsBlankAfterwards) {
    openWith({test::videoParameters()});
    write(0, 1, 0);
    const auto packet = makePacket({2}, 3600, 3600);
    packet->stream_index = 0;
    context->writePacket(*packet);
    EXPECT_EQ(packet->data, nullptr);
    EXPECT_EQ(packet->size, 0);
}

TEST_F(OutputFormatContextTest, AHeldPacketSharesItsDataAndLetsGoOfThemWhenWritten) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(), test::videoParameters()});
    const auto packet = makePacket({1});
    context->writePacket(*packet);
    EXPECT_EQ(av_buffer_get_ref_count(packet->buf), 2) << "held by reference, the caller's is left";
    write(1, 2, 0);
    EXPECT_EQ(av_buffer_get_ref_count(packet->buf), 1);
}

TEST_F(OutputFormatContextTest, ThrowsWhenAPacketCannotBeHeld) {
    openWith({test::videoParameters()});
    intercepted->av_packet_ref.instead = [](AVPacket*, const AVPacket*) { return AVERROR(ENOMEM); };
    expectFailure(AVERROR(ENOMEM), 135, [this] { write(0, 1, 0); });
}

TEST_F(OutputFormatContextTest, APacketThatCouldNotBeHeldIsNotWrittenWithTheNext) {
    test::MuxerRecord muxer;
    openWith({test::videoParameters()});
    intercepted->av_packet_ref.instead = [](AVPacket*, const AVPacket*) { return AVERROR(ENOMEM); };
    expectFailure(AVERROR(ENOMEM), 135, [this] { write(0, 1, 0); });
    intercepted->av_packet_ref.instead = nullptr;
    write(0, 1, 0);
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 1);
}

TEST_F(OutputFormatContextTest, ThrowsWhenThePacketCannotBeWritten) {
    openWith({test::videoParameters()});
    intercepted->av_interleaved_write_frame.instead = [](AVFormatContext*, AVPacket* packet) {
        av_packet_unref(packet);
        return AVERROR(EIO);
    };
    expectFailure(AVERROR(EIO), 188, [this] { write(0, 1, 0); });
}

TEST_F(OutputFormatContextTest, ATimeThatDoesNotRiseIsRefusedAndWritingGoesOn) {
    test::MuxerRecord muxer(test::MuxerRecord::Then::PassOn);
    openWith({test::videoParameters()});
    write(0, 1, 0);
    write(0, 2, 3600);
    expectFailure(AVERROR(EINVAL), 188, [this] { write(0, 3, 3600); });
    EXPECT_NO_THROW(write(0, 4, 7200));
    EXPECT_NO_THROW(context->finish());
}

} // namespace
} // namespace tio::ffmpeg
