#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/PacketDecoder.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tio::ffmpeg {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// The engine with its protected side open, and a count of how often the codec was opened.
class ProbeDecoder : public PacketDecoder {
public:
    using PacketDecoder::getCodecContext;
    using PacketDecoder::getFrame;
    using PacketDecoder::getFrameTime;
    using PacketDecoder::receiveFrame;

    int opened = 0;

protected:
    void onCodecOpened() override { ++opened; }
};

class PacketDecoderTest : public ::testing::Test {
protected:
    void openClip(const test::ClipPlan& plan = {}) {
        path = folder.file("clip." + (plan.format == "matroska" ? "mkv" : plan.format));
        test::makeClip(path, plan);
        openFile();
    }

    void openFile() {
        context = std::make_shared<InputFormatContext>(path);
        test::calls() = {}; // making the clip called FFmpeg as well
        stream = std::make_unique<InputStream>(context, context->findBestVideoStreamIndex());
    }

    // Reads frames until none comes.
    std::vector<int64_t> receiveAll() {
        std::vector<int64_t> times;
        while (decoder.receiveFrame())
            times.push_back(decoder.getFrame()->pts);
        return times;
    }

    // Decodes up to the end of the file, without saying that it is the end.
    std::vector<int64_t> decodeRest() {
        std::vector<int64_t> times;
        while (auto packet = stream->getNextPacket()) {
            EXPECT_TRUE(decoder.offerPacket(packet));
            const auto some = receiveAll();
            times.insert(times.end(), some.begin(), some.end());
        }
        return times;
    }

    std::vector<int64_t> decodeToTheEnd() {
        auto times = decodeRest();
        decoder.end();
        const auto rest = receiveAll();
        times.insert(times.end(), rest.begin(), rest.end());
        return times;
    }

    // Runs `action`, which must throw FFmpeg's text for `code` with the place `number`.
    template <typename Action>
    void expectFailure(int code, int number, Action action) {
        char text[1024] = {};
        av_strerror(code, text, sizeof text);
        const std::string expected =
            std::string(text) + R"( @ ..\src\TARN\videoio\PacketDecoder:)" + std::to_string(number);
        try {
            action();
            ADD_FAILURE() << "expected " << expected;
        } catch (const Exception& failure) {
            EXPECT_EQ(failure.what(), expected);
        }
        EXPECT_TRUE(log.contains("root", 5, expected));
    }

    test::TemporaryFolder folder;
    std::string path;
    test::Interception intercepted;
    test::LogCapture log;
    std::shared_ptr<InputFormatContext> context;
    std::unique_ptr<InputStream> stream;
    ProbeDecoder decoder;
};

TEST_F(PacketDecoderTest, RefusesASecondPacketUntilTheFirstIsRead) {
    openClip();
    const auto first = stream->getNextPacket();
    const auto second = stream->getNextPacket();
    EXPECT_TRUE(decoder.offerWouldBeAccepted());
    EXPECT_TRUE(decoder.offerPacket(first));
    EXPECT_FALSE(decoder.offerWouldBeAccepted());
    EXPECT_FALSE(decoder.offerPacket(second));
    EXPECT_EQ(first.use_count(), 2) << "the first packet is kept";
    EXPECT_EQ(second.use_count(), 1) << "the refused packet is not";
    decoder.receiveFrame();
    EXPECT_TRUE(decoder.offerWouldBeAccepted());
}

TEST_F(PacketDecoderTest, GivesThePacketToTheCodecOnlyWhenAFrameIsAskedFor) {
    openClip();
    decoder.offerPacket(stream->getNextPacket());
    EXPECT_EQ(intercepted->avcodec_send_packet.count, 0);
    decoder.receiveFrame();
    EXPECT_EQ(intercepted->avcodec_send_packet.count, 1);
}

TEST_F(PacketDecoderTest, OpensTheCodecOnceForTheFirstPacketAndNeverAgain) {
    openClip();
    EXPECT_EQ(decoder.opened, 0);
    decoder.offerPacket(stream->getNextPacket());
    EXPECT_EQ(decoder.opened, 1);
    const AVCodecContext* codec = decoder.getCodecContext();
    decoder.receiveFrame();
    decodeRest();
    decoder.flush();
    stream->seekToOrBefore(0);
    decoder.offerPacket(stream->getNextPacket());
    EXPECT_EQ(decoder.opened, 1);
    EXPECT_EQ(decoder.getCodecContext(), codec);
    EXPECT_EQ(intercepted->avcodec_open2.count, 1);
}

TEST_F(PacketDecoderTest, DecodesOnAsManyThreadsAsTheMachineHasInTheStreamsTimeBase) {
    openClip();
    decoder.offerPacket(stream->getNextPacket());
    const AVCodecContext& codec = *decoder.getCodecContext();
    const AVStream& source = *std::as_const(*stream).getStream();
    EXPECT_EQ(codec.thread_count, static_cast<int>(std::thread::hardware_concurrency()));
    EXPECT_EQ(av_cmp_q(codec.pkt_timebase, source.time_base), 0);
    EXPECT_EQ(decoder.getUnitTime(), Rational(source.time_base));
}

TEST_F(PacketDecoderTest, YieldsNothingBeforeThePacketsCome) {
    EXPECT_FALSE(decoder.receiveFrame());
    EXPECT_EQ(decoder.getUnitTime(), Rational());
}

TEST_F(PacketDecoderTest, TakesNoEmptyPointer) {
    EXPECT_FALSE(decoder.offerPacket(nullptr));
    EXPECT_TRUE(decoder.offerWouldBeAccepted());
    EXPECT_EQ(decoder.opened, 0);
}

TEST_F(PacketDecoderTest, EndingOrFlushingAnUnopenedDecoderDoesNothing) {
    decoder.end();
    decoder.flush();
    EXPECT_EQ(intercepted->avcodec_send_packet.count, 0);
    EXPECT_EQ(intercepted->avcodec_flush_buffers.count, 0);
}

TEST_F(PacketDecoderTest, EndingTwiceIsAllowed) {
    openClip();
    decodeToTheEnd();
    EXPECT_NO_THROW(decoder.end());
    EXPECT_FALSE(decoder.receiveFrame());
}

TEST_F(PacketDecoderTest, YieldsEveryFrameInOrderOfPresentation) {
    openClip();
    std::vector<int64_t> expected;
    for (const auto& frame : test::oracleFrames(path))
        expected.push_back(frame.pts);
    EXPECT_EQ(decodeToTheEnd(), expected);
    EXPECT_THAT(expected, SizeIs(25));
}

TEST_F(PacketDecoderTest, FrameTimesAreExactSeconds) {
    test::ClipPlan plan;
    plan.timeBase = {1001, 30000};
    openClip(plan);
    const auto frames = test::oracleFrames(path);
    decoder.offerPacket(stream->getNextPacket());
    while (!decoder.receiveFrame())
        decoder.offerPacket(stream->getNextPacket());
    const auto next = [&] {
        while (!decoder.receiveFrame())
            decoder.offerPacket(stream->getNextPacket());
    };
    EXPECT_EQ(decoder.getFrameTime(), Rational(0, 1));
    next();
    EXPECT_EQ(decoder.getFrameTime().numerator, frames[1].time().numerator);
    EXPECT_EQ(decoder.getFrameTime().denominator, frames[1].time().denominator);
}

TEST_F(PacketDecoderTest, NeverYieldsTwoFramesOfTheSameOrAFallingTime) {
    openClip();
    std::vector<int64_t> times = {5, 5, 4, AV_NOPTS_VALUE, 6};
    size_t next = 0;
    intercepted->avcodec_send_packet.instead = [](AVCodecContext*, const AVPacket*) { return 0; };
    intercepted->avcodec_receive_frame.instead = [&](AVCodecContext*, AVFrame* frame) {
        if (next == times.size())
            return AVERROR(EAGAIN);
        frame->pts = times[next++];
        return 0;
    };
    decoder.offerPacket(stream->getNextPacket());
    std::vector<bool> yielded;
    for (size_t i = 0; i < times.size(); ++i)
        yielded.push_back(decoder.receiveFrame());
    EXPECT_THAT(yielded, ElementsAre(true, false, false, false, true));
}

TEST_F(PacketDecoderTest, AStreamWithoutTimesYieldsNoFrames) {
    test::ClipPlan plan;
    plan.format = "h264";
    openClip(plan);
    EXPECT_THAT(decodeToTheEnd(), IsEmpty());
}

TEST_F(PacketDecoderTest, AfterAFlushEarlierFramesComeAgain) {
    openClip();
    const auto first = decodeToTheEnd();
    decoder.flush();
    EXPECT_TRUE(decoder.offerWouldBeAccepted());
    stream->seekToOrBefore(0);
    EXPECT_EQ(decodeToTheEnd(), first);
}

TEST_F(PacketDecoderTest, AFlushReleasesTheWaitingPacket) {
    openClip();
    const auto packet = stream->getNextPacket();
    decoder.offerPacket(packet);
    decoder.flush();
    EXPECT_TRUE(decoder.offerWouldBeAccepted());
    EXPECT_EQ(packet.use_count(), 1);
}

TEST_F(PacketDecoderTest, APacketThatTheCodecCannotTakeYetIsSentAgain) {
    openClip();
    decoder.offerPacket(stream->getNextPacket());
    for (const int answer : {AVERROR(EAGAIN), AVERROR_EOF}) {
        intercepted->avcodec_send_packet.instead = [answer](AVCodecContext*, const AVPacket*) {
            return answer;
        };
        decoder.receiveFrame();
        EXPECT_FALSE(decoder.offerWouldBeAccepted());
    }
    intercepted->avcodec_send_packet.instead = nullptr;
    decoder.receiveFrame();
    EXPECT_TRUE(decoder.offerWouldBeAccepted());
}

TEST_F(PacketDecoderTest, APacketStillWaitingAtTheEndIsNeverDecoded) {
    openClip();
    decoder.offerPacket(stream->getNextPacket());
    decoder.end();
    EXPECT_THAT(receiveAll(), IsEmpty());
    EXPECT_FALSE(decoder.offerWouldBeAccepted());
}

TEST_F(PacketDecoderTest, ADamagedPacketIsReportedOnceAndPassedOver) {
    test::ClipPlan plan;
    plan.format = "matroska";
    plan.frameCount = 30;
    openClip(plan);
    test::damagePacket(path, 6);
    openFile();
    ::testing::internal::CaptureStderr();
    const auto times = decodeToTheEnd();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Invalid data found, attempting to continue\n");
    // Only pictures that refer to the damaged one may be lost with it: those of its own group.
    int64_t last = 0;
    for (const auto& packet : test::oraclePackets(path))
        last = std::max(last, packet.pts);
    EXPECT_GE(times.size(), 30u - 12u);
    EXPECT_EQ(times.back(), last);
}

TEST_F(PacketDecoderTest, ADamagedPacketInFlightAtTheEndThrowsAndTheRestStillComesOut) {
    test::ClipPlan plan;
    plan.format = "matroska";
    plan.maxBFrames = 0;
    openClip(plan);
    test::damagePacket(path, plan.frameCount - 1);
    openFile();
    ::testing::internal::CaptureStderr();
    auto times = decodeRest();
    // By release and thread count the damage surfaces at the end, in a read after it, or not at
    // all; after it every picture that is left comes out.
    try {
        decoder.end();
    } catch (const Exception& failure) {
        EXPECT_THAT(failure.what(), EndsWith("PacketDecoder:116"));
    }
    int failures = 0;
    for (bool more = true; more;) {
        try {
            more = decoder.receiveFrame();
            if (more)
                times.push_back(decoder.getFrame()->pts);
        } catch (const Exception& failure) {
            EXPECT_THAT(failure.what(), EndsWith("PacketDecoder:161"));
            ASSERT_LE(++failures, 1);
        }
    }
    ::testing::internal::GetCapturedStderr();
    const auto packets = test::oraclePackets(path);
    ASSERT_GE(times.size(), packets.size() - 1);
    for (size_t i = 0; i + 1 < packets.size(); ++i)
        EXPECT_EQ(times[i], packets[i].pts);
}

TEST_F(PacketDecoderTest, ParametersThatTheCodecRejectsThrow) {
    openClip();
    intercepted->avcodec_parameters_to_context.instead =
        [](AVCodecContext*, const AVCodecParameters*) { return AVERROR(EINVAL); };
    expectFailure(AVERROR(EINVAL), 54, [&] { decoder.offerPacket(stream->getNextPacket()); });
    EXPECT_EQ(decoder.opened, 0);
}

TEST_F(PacketDecoderTest, ACodecThatFfmpegDoesNotHaveThrows) {
    openClip();
    const auto packet = stream->getNextPacket();
    stream->getStream()->codecpar->codec_id = AV_CODEC_ID_PROBE;
    expectFailure(AVERROR(EINVAL), 64, [&] { decoder.offerPacket(packet); });
    EXPECT_EQ(decoder.opened, 0);
}

TEST_F(PacketDecoderTest, ADecoderThatFailedToOpenCanStillBeFlushedAndDestroyed) {
    openClip();
    const auto packet = stream->getNextPacket();
    stream->getStream()->codecpar->codec_id = AV_CODEC_ID_PROBE;
    EXPECT_THROW(decoder.offerPacket(packet), Exception);
    EXPECT_FALSE(decoder.offerWouldBeAccepted()) << "the packet is still there";
    decoder.flush();
    EXPECT_TRUE(decoder.offerWouldBeAccepted());
}

TEST_F(PacketDecoderTest, AnyOtherAnswerToAPacketThrowsAndLeavesItWaiting) {
    openClip();
    decoder.offerPacket(stream->getNextPacket());
    intercepted->avcodec_send_packet.instead = [](AVCodecContext*, const AVPacket*) {
        return AVERROR(EINVAL);
    };
    expectFailure(AVERROR(EINVAL), 138, [&] { decoder.receiveFrame(); });
    EXPECT_FALSE(decoder.offerWouldBeAccepted());
}

TEST_F(PacketDecoderTest, AFailureWhileReceivingThrows) {
    openClip();
    decoder.offerPacket(stream->getNextPacket());
    intercepted->avcodec_receive_frame.instead = [](AVCodecContext*, AVFrame*) {
        return AVERROR_INVALIDDATA;
    };
    expectFailure(AVERROR_INVALIDDATA, 161, [&] { decoder.receiveFrame(); });
}

TEST_F(PacketDecoderTest, AFailureWhileEndingThrows) {
    openClip();
    decoder.offerPacket(stream->getNextPacket());
    intercepted->avcodec_send_packet.instead = [](AVCodecContext*, const AVPacket*) {
        return AVERROR_INVALIDDATA;
    };
    expectFailure(AVERROR_INVALIDDATA, 116, [&] { decoder.end(); });
}

} // namespace
} // namespace tio::ffmpeg
