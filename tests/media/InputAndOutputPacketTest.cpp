#include "support/BareObjects.h"
#include "support/Expectations.h"
#include "support/KeptPacket.h"

#include <TARN/videoio/Packet.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::IsFraction;
using test::makePacket;

/// Whether what only asks for a value cannot throw, as the headers promise.
template <typename Asked>
constexpr bool cannotFail() {
    return noexcept(std::declval<Asked&>().getPacket())&& noexcept(std::declval<Asked&>().getUnitTime())&& noexcept(
        std::declval<Asked&>()
            .getPts())&& noexcept(std::declval<Asked&>()
                                      .getDts())&& noexcept(std::declval<Asked&>()
                                                                .hasPts())&& noexcept(std::declval<Asked&>()
                                                                                          .hasDts())&& noexcept(std::declval<Asked&>()
                                                                                                                    .getDuration())&& noexcept(std::declval<Asked&>()
                                                                                                                                                   .getData(
                                                                                                                                                       std::declval<
                                                                                                                                                           int&>()));
}
static_assert(cannotFail<Packet>() && cannotFail<const Packet>());
static_assert(noexcept(std::declval<const InputPacket&>().getStream()) && noexcept(
    std::declval<const OutputPacket&>()
        .getCodecParameters()) && noexcept(std::declval<const OutputPacket&>().getEncodingCodec()));

class InputPacketTest : public ::testing::Test {
protected:
    InputPacketTest() {
        context.stream(0).time_base = {2, 50};
        context.stream(1).time_base = {1, 90000};
    }

    InputPacket packetOf(int stream, int64_t pts) const {
        return InputPacket(makePacket({1}, pts).get(), &context.stream(stream));
    }

    test::BareContext context{2};
};

TEST_F(InputPacketTest, CountsInTheTimeBaseOfItsStream) {
    const InputPacket packet = packetOf(0, 50);
    EXPECT_THAT(packet.getUnitTime(), IsFraction(1, 25));
    EXPECT_THAT(packet.getPts(), IsFraction(2, 1));
    EXPECT_EQ(&packet.getStream(), &context.stream(0));
}

TEST_F(InputPacketTest, ACopyKnowsTheStreamToo) {
    const InputPacket original = packetOf(1, 3003);
    const InputPacket copy = original;
    EXPECT_EQ(&copy.getStream(), &context.stream(1));
    EXPECT_THAT(copy.getPts(), IsFraction(1001, 30000));
    EXPECT_EQ(copy.getPacket().data, original.getPacket().data);
}

TEST_F(InputPacketTest, CopyAssignmentTakesTheStreamButKeepsTheTimeBase) {
    InputPacket target = packetOf(0, 1);
    target = packetOf(1, 50);
    EXPECT_EQ(&target.getStream(), &context.stream(1));
    EXPECT_THAT(target.getUnitTime(), IsFraction(1, 25));
    EXPECT_THAT(target.getPts(), IsFraction(2, 1));
}

class OutputPacketTest : public ::testing::Test {
protected:
    OutputPacket packetOf(AVCodecID codec) {
        parameters().codec_id = codec;
        return OutputPacket(makePacket({1}, 50).get(), &parameters(), Rational(1, 25));
    }

    AVCodecParameters& parameters() const { return *context.stream().codecpar; }

    test::BareContext context{2};
};

TEST_F(OutputPacketTest, HoldsTheParametersAndTheTimeBaseItWasGiven) {
    const OutputPacket packet = packetOf(AV_CODEC_ID_H264);
    EXPECT_EQ(&packet.getCodecParameters(), &parameters());
    EXPECT_THAT(packet.getPts(), IsFraction(2, 1));
}

TEST_F(OutputPacketTest, TellsTheCodecOfItsData) {
    EXPECT_EQ(packetOf(AV_CODEC_ID_H264).getEncodingCodec(), Codec::H264);
    EXPECT_EQ(packetOf(AV_CODEC_ID_AAC).getEncodingCodec(), Codec::Aac);
    EXPECT_EQ(packetOf(AV_CODEC_ID_HEVC).getEncodingCodec(), Codec::Unknown);
}

TEST_F(OutputPacketTest, PassesAnInputPacketThrough) {
    context.stream().time_base = {1, 90000};
    const InputPacket input(makePacket({1}, 3003).get(), &context.stream());
    const OutputPacket output = input;
    EXPECT_EQ(output.getPacket().data, input.getPacket().data);
    EXPECT_THAT(output.getPts(), IsFraction(1001, 30000));
    EXPECT_EQ(&output.getCodecParameters(), context.stream().codecpar);
}

TEST_F(OutputPacketTest, CopiesKnowTheParametersToo) {
    const OutputPacket original = packetOf(AV_CODEC_ID_H264);
    const OutputPacket copy = original;
    EXPECT_EQ(&copy.getCodecParameters(), &parameters());
    OutputPacket target(makePacket({1}).get(), context.stream(1).codecpar, Rational(1, 1000));
    target = original;
    EXPECT_EQ(&target.getCodecParameters(), &parameters());
    EXPECT_THAT(target.getUnitTime(), IsFraction(1, 1000));
}

TEST_F(OutputPacketTest, KeepsBytesAliveAsLongAsAnyCopy) {
    auto bytes = std::make_shared<std::vector<uint8_t>>(4);
    const std::weak_ptr<std::vector<uint8_t>> watched = bytes;
    auto original = std::make_unique<test::KeptPacket>(packetOf(AV_CODEC_ID_H264));
    original->setKeepAlive(std::move(bytes));
    auto copy = std::make_unique<OutputPacket>(*original);
    OutputPacket assigned = packetOf(AV_CODEC_ID_H264);
    assigned = *copy;
    EXPECT_EQ(watched.use_count(), 3);
    original.reset();
    copy.reset();
    EXPECT_EQ(watched.use_count(), 1);
    assigned = packetOf(AV_CODEC_ID_H264);
    EXPECT_TRUE(watched.expired()) << "an assignment from a packet without them releases them";
}

TEST_F(OutputPacketTest, ReleasesTheBytesThroughTheBaseClass) {
    auto bytes = std::make_shared<std::vector<uint8_t>>(4);
    const std::weak_ptr<std::vector<uint8_t>> watched = bytes;
    auto packet = std::make_unique<test::KeptPacket>(packetOf(AV_CODEC_ID_AAC));
    packet->setKeepAlive(std::move(bytes));
    std::unique_ptr<Packet> base = std::move(packet);
    base.reset();
    EXPECT_TRUE(watched.expired());
}

} // namespace
} // namespace tio::ffmpeg
