#include "decode/Decoder.h"

#include "base/checks.h"
#include "support/ClipMaker.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputStream.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {
namespace {

using ::testing::EndsWith;

using State = Decoder::State;
using Sent = Decoder::Sent;
using Received = Decoder::Received;

class DecoderTest : public ::testing::Test {
protected:
    DecoderTest() {
        test::ClipPlan plan;
        plan.audio = true;
        test::makeClip(path, plan);
        test::calls() = {}; // making the clip called FFmpeg as well
    }

    InputStream streamOf(int index) const {
        return {std::make_shared<InputFormatContext>(path), index};
    }

    static void open(Decoder& decoder, InputStream& stream) {
        decoder.open(*stream.getStream()->codecpar, stream.getStream()->time_base);
    }

    // Decodes the whole stream as the header says.
    static std::vector<int64_t> decodeAll(Decoder& decoder, InputStream& stream) {
        std::vector<int64_t> times;
        while (true) {
            switch (decoder.receive()) {
            case Received::Frame:
                times.push_back(decoder.frame().pts);
                break;
            case Received::NeedsPacket:
                if (const auto packet = stream.getNextPacket())
                    EXPECT_EQ(decoder.send(packet->getPacket()), Sent::Taken);
                else
                    decoder.drain();
                break;
            case Received::Drained:
                return times;
            }
        }
    }

    test::TemporaryFolder folder;
    std::string path = folder.file("clip.mp4");
    test::Interception intercepted;
    test::LogCapture log;
};

TEST_F(DecoderTest, DecodesPicturesToTheEnd) {
    InputStream stream = streamOf(0);
    Decoder decoder;
    open(decoder, stream);
    std::vector<int64_t> expected;
    for (const auto& frame : test::oracleFrames(path))
        expected.push_back(frame.pts);
    EXPECT_EQ(decodeAll(decoder, stream), expected);
    EXPECT_EQ(decoder.state(), State::Drained);
    EXPECT_EQ(decoder.unitTime(), stream.getUnitTime());
}

TEST_F(DecoderTest, DecodesSoundAsWell) {
    InputStream stream = streamOf(1);
    Decoder decoder(1);
    open(decoder, stream);
    const auto times = decodeAll(decoder, stream);
    InputStream again = streamOf(1);
    std::vector<int64_t> packets;
    while (const auto packet = again.getNextPacket())
        packets.push_back(packet->getPacket().pts);
    ASSERT_LT(packets.front(), 0); // the priming, which the container has the decoder leave out
    packets.erase(packets.begin());
    EXPECT_EQ(times, packets);
    EXPECT_EQ(decoder.context()->thread_count, 1);
}

TEST_F(DecoderTest, DecodesFromAnotherPlaceAfterAFlush) {
    InputStream stream = streamOf(0);
    Decoder decoder;
    open(decoder, stream);
    const auto first = decodeAll(decoder, stream);
    decoder.flush();
    EXPECT_EQ(decoder.state(), State::Open);
    stream.seekToOrBefore(0);
    EXPECT_EQ(decodeAll(decoder, stream), first);
}

TEST_F(DecoderTest, ADecoderThatFfmpegDoesNotHaveLeavesItUnusable) {
    InputStream stream = streamOf(0);
    stream.getStream()->codecpar->codec_id = AV_CODEC_ID_PROBE;
    Decoder decoder;
    try {
        open(decoder, stream);
        ADD_FAILURE() << "opened";
    } catch (const Exception& failure) {
        EXPECT_THAT(failure.what(), EndsWith("PacketDecoder:64"));
    }
    EXPECT_EQ(decoder.state(), State::Unusable);
    decoder.flush();
    EXPECT_EQ(decoder.state(), State::Unusable);
    EXPECT_THROW((void)decoder.receive(), Exception);
}

TEST_F(DecoderTest, WhereMemoryWasShortItCanBeOpenedOnceMore) {
    InputStream stream = streamOf(0);
    intercepted->avcodec_open2.instead = [](AVCodecContext*) { return AVERROR(ENOMEM); };
    Decoder decoder;
    EXPECT_THROW(open(decoder, stream), Exception);
    EXPECT_EQ(decoder.state(), State::Unopened);
    intercepted->avcodec_open2.instead = nullptr;
    open(decoder, stream);
    EXPECT_EQ(decodeAll(decoder, stream).size(), 25u);
}

TEST_F(DecoderTest, ADamagedPacketAndOneThatHasToWaitAreToldApart) {
    InputStream stream = streamOf(0);
    Decoder decoder;
    open(decoder, stream);
    const auto packet = stream.getNextPacket();
    int answer = AVERROR_INVALIDDATA;
    intercepted->avcodec_send_packet.instead = [&](AVCodecContext*, const AVPacket*) {
        return answer;
    };
    EXPECT_EQ(decoder.send(packet->getPacket()), Sent::Invalid);
    answer = AVERROR(EAGAIN);
    EXPECT_EQ(decoder.send(packet->getPacket()), Sent::Waits);
    answer = AVERROR(EIO);
    EXPECT_THROW((void)decoder.send(packet->getPacket()), Exception);
    answer = AVERROR(ENOMEM);
    try {
        (void)decoder.send(packet->getPacket());
        FAIL();
    } catch (const Exception& failure) {
        EXPECT_TRUE(isOutOfMemory(failure));
    }
}

TEST_F(DecoderTest, BeforeItIsOpenedItHasNoUnitAndNothingToDrainOrFlush) {
    Decoder decoder;
    EXPECT_EQ(decoder.unitTime(), Rational());
    EXPECT_EQ(decoder.context(), nullptr);
    decoder.drain();
    decoder.flush();
    EXPECT_EQ(decoder.state(), State::Unopened);
}

} // namespace
} // namespace tio::ffmpeg::detail
