#include "ffmpeg_compat.h"
#include "support/BareObjects.h"
#include "support/Encoding.h"
#include "support/TemporaryFolder.h"
#include "support/Track.h"

#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Packet.h>

#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace tio::ffmpeg {
namespace {

class AudioPacketInfoTest : public ::testing::Test {
protected:
    AudioPacketInfoTest() { parameters().sample_rate = 44100; }

    AVCodecParameters& parameters() const { return *context.stream().codecpar; }

    int layoutOf(uint64_t mask) const {
        compat::setChannelMask(parameters(), mask);
        return AudioPacketInfo(input).getChannelLayout();
    }

    test::BareContext context;
    test::PacketPointer data = test::makePacket({1});
    InputPacket input{data.get(), &context.stream()};
    OutputPacket output{data.get(), context.stream().codecpar, Rational(1, 44100)};
};

TEST_F(AudioPacketInfoTest, ReadsTheStreamOfAnInputPacket) {
    compat::setChannelMask(parameters(), AV_CH_LAYOUT_5POINT1);
    const AudioPacketInfo info(input);
    EXPECT_EQ(info.getSampleRate(), 44100);
    EXPECT_EQ(info.getChannelCount(), 6);
    EXPECT_EQ(info.getChannelLayout(), 0x60F); // front pair, centre, low frequency, side pair
}

TEST_F(AudioPacketInfoTest, ReadsTheParametersOfAnOutputPacket) {
    compat::setChannelMask(parameters(), AV_CH_LAYOUT_STEREO);
    const AudioPacketInfo info(output);
    EXPECT_EQ(info.getSampleRate(), 44100);
    EXPECT_EQ(info.getChannelCount(), 2);
    EXPECT_EQ(info.getChannelLayout(), 3);
}

TEST_F(AudioPacketInfoTest, ReadsAtTheMomentOfTheCall) {
    compat::setChannelMask(parameters(), AV_CH_LAYOUT_STEREO);
    const AudioPacketInfo info(output);
    parameters().sample_rate = 8000;
    compat::setChannelMask(parameters(), AV_CH_LAYOUT_MONO);
    EXPECT_EQ(info.getSampleRate(), 8000);
    EXPECT_EQ(info.getChannelCount(), 1);
    EXPECT_EQ(info.getChannelLayout(), 4);
}

TEST_F(AudioPacketInfoTest, OutlivesThePacketThatItWasMadeFrom) {
    const AudioPacketInfo info{OutputPacket(output)};
    EXPECT_EQ(info.getSampleRate(), 44100);
}

TEST_F(AudioPacketInfoTest, KeepsTheLowerHalfOfTheChannelMask) {
    EXPECT_EQ(layoutOf(uint64_t{1} << 31), std::numeric_limits<int>::min());
    EXPECT_EQ(layoutOf((uint64_t{1} << 33) | 3), 3);
    EXPECT_EQ(layoutOf(uint64_t{1} << 33), 0);
}

TEST_F(AudioPacketInfoTest, AnUnknownLayoutIsZero) {
    const AudioPacketInfo info(input);
    EXPECT_EQ(info.getChannelLayout(), 0);
    EXPECT_EQ(info.getChannelCount(), 0);
}

TEST(AudioPacketInfoOfAFileTest, AgreesWithHowTheFileWasMade) {
    const test::TemporaryFolder folder;
    const std::string path = folder.file("tone.mp4");
    test::writePackets(path, "mp4", {test::encodeTone(0.1, true)}); // mono, 48 kHz
    InputFormatContext context(path);
    const test::PacketPointer packet(av_packet_alloc());
    ASSERT_TRUE(context.getNextPacketForStream(packet.get(), 0));
    const AudioPacketInfo info(InputPacket(packet.get(), context.getStream(0)));
    EXPECT_EQ(info.getSampleRate(), 48000);
    EXPECT_EQ(info.getChannelCount(), 1);
    EXPECT_EQ(info.getChannelLayout(), 4); // the speaker in front
}

} // namespace
} // namespace tio::ffmpeg
