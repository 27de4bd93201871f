#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Encoding.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"
#include "support/WrittenFile.h"

#include <TARN/videoio/AudioStreamDecoder.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputStream.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

class AudioStreamDecoderTest : public ::testing::Test {
protected:
    // A second of pictures and of a mono tone at 48 kHz.
    std::string clip(const std::string& name = "clip.mp4",
                     const std::string& format = "mp4") const {
        test::ClipPlan plan;
        plan.format = format;
        plan.audio = true;
        const std::string path = folder.file(name);
        test::makeClip(path, plan);
        return path;
    }

    static std::unique_ptr<AudioStreamDecoder> open(const std::string& path) {
        return std::make_unique<AudioStreamDecoder>(std::make_shared<InputFormatContext>(path));
    }

    static std::vector<AudioPacketDecoder::Frame> readAll(AudioStreamDecoder& decoder) {
        std::vector<AudioPacketDecoder::Frame> frames;
        for (auto frame = decoder.readNextFrame(); frame.samples.count != 0;
             frame = decoder.readNextFrame())
            frames.push_back(frame);
        return frames;
    }

    // A WAV file of so many blocks of IMA ADPCM, all silent.
    static std::vector<uint8_t> adpcmWave(uint32_t blocks) {
        constexpr uint32_t blockBytes = 1024;
        constexpr uint32_t rate = 48000;
        const uint32_t samples = (blockBytes - 4) * 2 + 1;
        std::vector<uint8_t> bytes;
        const auto text = [&bytes](const std::string& letters) {
            bytes.insert(bytes.end(), letters.begin(), letters.end());
        };
        const auto number = [&bytes](uint32_t value, int count) {
            for (int i = 0; i < count; ++i)
                bytes.push_back(static_cast<uint8_t>(value >> 8 * i));
        };
        text("RIFF");
        number(40 + blocks * blockBytes, 4);
        text("WAVEfmt ");
        number(20, 4);
        number(0x11, 2); // IMA ADPCM
        number(1, 2);    // channel
        number(rate, 4);
        number(rate * blockBytes / samples, 4);
        number(blockBytes, 2);
        number(4, 2); // bits a sample
        number(2, 2); // bytes follow
        number(samples, 2);
        text("data");
        number(blocks * blockBytes, 4);
        bytes.resize(bytes.size() + blocks * blockBytes);
        return bytes;
    }

    static std::vector<float> samplesOf(const AudioPacketDecoder::Frame& frame) {
        return {frame.samples.data(), frame.samples.data() + frame.samples.count};
    }

    static void expectSame(const std::vector<AudioPacketDecoder::Frame>& frames,
                           const std::vector<test::FileBlock>& blocks, Rational unitTime) {
        ASSERT_THAT(frames, SizeIs(blocks.size()));
        for (size_t i = 0; i < blocks.size(); ++i) {
            EXPECT_EQ(frames[i].timestamp, Rational(blocks[i].pts, 1) * unitTime) << i;
            EXPECT_EQ(frames[i].samples.cols(), blocks[i].channels) << i;
            EXPECT_EQ(samplesOf(frames[i]), blocks[i].samples) << i;
        }
    }

    test::TemporaryFolder folder;
    test::Interception intercepted;
    test::LogCapture log;
};

TEST_F(AudioStreamDecoderTest, ConstructingReadsNothing) {
    auto context = std::make_shared<InputFormatContext>(clip());
    const int read = intercepted->av_read_frame.count;
    const AudioStreamDecoder decoder(context);
    EXPECT_EQ(intercepted->av_read_frame.count, read);
}

TEST_F(AudioStreamDecoderTest, AnInputWithoutSoundFailsInTheConstructor) {
    const std::string path = folder.file("silent.mp4");
    test::makeClip(path, {});
    try {
        open(path);
        FAIL() << "expected an exception";
    } catch (const Exception& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("Could not find stream of requested type"));
    }
}

TEST_F(AudioStreamDecoderTest, YieldsTheSamplesAndTimesThatFfmpegDecodes) {
    for (const auto& [name, format] : {std::pair("clip.mp4", "mp4"), std::pair("clip.ts", "mpegts"),
                                       std::pair("clip.mkv", "matroska")}) {
        const std::string path = clip(name, format);
        const auto blocks = test::readSound(path);
        EXPECT_GE(blocks.size(), 46u) << "a second in blocks of 1024";
        auto decoder = open(path);
        const auto frames = readAll(*decoder);
        expectSame(frames, blocks, decoder->getUnitTime());
    }
}

TEST_F(AudioStreamDecoderTest, SampleRateReadsAndOffersExactlyOnePacketThatIsNotLost) {
    const std::string path = clip();
    const auto blocks = test::readSound(path);
    auto decoder = open(path);
    const int sent = intercepted->avcodec_send_packet.count;
    int own = 0; // packets of the sound: those of the pictures are dropped on the way
    intercepted->av_read_frame.instead = [&](AVFormatContext* context, AVPacket* packet) {
        const int result = test::real::readFrame(context, packet);
        own += result >= 0 && packet->stream_index == 1 ? 1 : 0;
        return result;
    };
    EXPECT_EQ(decoder->getSampleRate(), 48000);
    EXPECT_EQ(own, 1);
    EXPECT_EQ(decoder->getSampleRate(), 48000);
    EXPECT_EQ(decoder->getChannelLayout(), 4);
    EXPECT_EQ(own, 1);
    EXPECT_EQ(intercepted->avcodec_send_packet.count, sent) << "offered, not yet decoded";
    expectSame(readAll(*decoder), blocks, decoder->getUnitTime());
}

TEST_F(AudioStreamDecoderTest, TheLayoutPrimesTheDecoderToo) {
    auto decoder = open(clip());
    EXPECT_EQ(decoder->getChannelLayout(), 4) << "the speaker in front";
}

TEST_F(AudioStreamDecoderTest, EveryFrameTellsRateLayoutAndUnitTime) {
    auto decoder = open(clip());
    const auto frame = decoder->readNextFrame();
    EXPECT_EQ(frame.sampleRate, 48000);
    EXPECT_EQ(frame.channelLayout, 4);
    EXPECT_EQ(frame.unitTime, decoder->getUnitTime());
    EXPECT_EQ(frame.unitTime, Rational(1, 48000));
}

TEST_F(AudioStreamDecoderTest, ReturnsAFrameWithoutSamplesAtTheEndAsOftenAsAsked) {
    auto decoder = open(clip());
    EXPECT_FALSE(readAll(*decoder).empty());
    for (int i = 0; i < 3; ++i) {
        const auto frame = decoder->readNextFrame();
        EXPECT_EQ(frame.samples.count, 0);
        EXPECT_EQ(frame.timestamp, Rational());
        EXPECT_EQ(frame.sampleRate, 0);
        EXPECT_EQ(frame.channelLayout, 0);
    }
}

TEST_F(AudioStreamDecoderTest, AFrameCountIsThatOfThePacketsAndNotOfTheSamples) {
    const std::string path = folder.file("tone.mkv");
    const auto tone = test::encodeTone(0.5, true);
    test::writePackets(path, "matroska", {tone});
    EXPECT_EQ(open(path)->getFrameCount(), static_cast<int64_t>(tone.packets.size()));
}

TEST_F(AudioStreamDecoderTest, SeeksByBlock) {
    const std::string path = folder.file("tone.mkv");
    test::writePackets(path, "matroska", {test::encodeTone(0.5, true)});
    auto decoder = open(path);
    const auto all = readAll(*decoder);
    // Frames are numbered by packets. FFmpeg's decoder leaves out those that the file calls the
    // encoder's delay, in Matroska since release 9.
    const size_t delay = static_cast<size_t>(decoder->getFrameCount()) - all.size();
    for (const size_t n : {size_t{20}, size_t{3}, size_t{11}}) {
        decoder->seek(static_cast<int64_t>(n + delay));
        EXPECT_EQ(decoder->readNextFrame().timestamp, all[n].timestamp) << n;
        EXPECT_EQ(decoder->readNextFrame().timestamp, all[n + 1].timestamp) << n;
    }
}

TEST_F(AudioStreamDecoderTest, SeekToZeroAfterTheEndGivesEverythingAgain) {
    const std::string path = clip("clip.ts", "mpegts");
    auto decoder = open(path);
    const auto first = readAll(*decoder);
    decoder->seek(0);
    const auto again = readAll(*decoder);
    ASSERT_THAT(again, SizeIs(first.size()));
    EXPECT_EQ(again.back().timestamp, first.back().timestamp);
}

// Four blocks to a packet, of which only the first has a time: the others are dropped, and with
// them in the codec the end must not be told of, since the last packet would go with it.
TEST_F(AudioStreamDecoderTest, TheLastPacketIsDecodedThoughFramesToBeDroppedAreBeforeIt) {
    const std::string path = folder.file("adpcm.wav");
    test::writeBytes(path, adpcmWave(24));
    auto decoder = open(path);
    const auto frames = readAll(*decoder);
    ASSERT_EQ(static_cast<int64_t>(frames.size()), decoder->getFrameCount());
    const auto input = std::make_shared<InputFormatContext>(path);
    EXPECT_EQ(frames.back().timestamp, InputStream(input, 0).getFrameMsMap().back());
}

TEST_F(AudioStreamDecoderTest, CopiesOfAFrameShareItsSamples) {
    auto decoder = open(clip());
    const auto frame = decoder->readNextFrame();
    const auto copy = frame;
    EXPECT_EQ(copy.samples.storage, frame.samples.storage);
}

TEST_F(AudioStreamDecoderTest, SamplesStayAsTheyAreWhenTheDecoderGoesOnAndAway) {
    const std::string path = clip();
    auto decoder = open(path);
    const auto first = decoder->readNextFrame();
    readAll(*decoder);
    decoder.reset();
    EXPECT_EQ(samplesOf(first), test::readSound(path)[0].samples);
}

TEST_F(AudioStreamDecoderTest, ANullContextIsRefused) {
    EXPECT_THROW(AudioStreamDecoder(nullptr), tio::Exception);
}

TEST_F(AudioStreamDecoderTest, TheContextLivesAsLongAsTheDecoder) {
    auto context = std::make_shared<InputFormatContext>(clip());
    AudioStreamDecoder decoder(context);
    context.reset();
    EXPECT_NE(decoder.readNextFrame().samples.count, 0);
}

} // namespace
} // namespace tio::ffmpeg
