#include "ClipWriterFixture.h"
#include "ReadBack.h"

#include <TARN/videoio/ClipWriter.h>

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

extern "C" {
#include <libavutil/intreadwrite.h>
#include <libavutil/md5.h>
}

namespace tio::ffmpeg {
namespace {

using test::click;
using test::ClipWriterTest;
using test::Fraction;
using test::loudest;
using test::ReadBack;
using test::readHeard;
using test::rgbPicture;
using test::timesIn;

// Sound.

class ClipWriterSoundTest
    : public ClipWriterTest,
      public ::testing::WithParamInterface<std::tuple<const char*, const char*>> {};

TEST_P(ClipWriterSoundTest, StandsAtItsSampleAndIsAsLongAsItWas) {
    const auto [name, codec] = GetParam();
    ClipWriterOptions options;
    options.audioRate = 48000;
    options.audioCodec = codec;
    constexpr std::size_t count = 50001;
    constexpr std::size_t at = 30011;
    const std::vector<float> samples = click(count, at);
    {
        ClipWriter writer(file(name), options);
        for (std::size_t i = 0; i < count; i += 777)
            writer.writeSamples(samples.data() + i, std::min<std::size_t>(777, count - i), 1);
        writer.finish();
    }
    const test::HeardSound heard = readHeard(file(name));
    const std::string container = std::filesystem::path(name).extension().string();
    const bool matroska = container == ".mkv" || container == ".webm";
    if (matroska && std::string(codec) == "aac") { // FFmpeg 5.1 tells the run-in and keeps it
        EXPECT_NEAR(heard.begin.toDouble() + static_cast<double>(loudest(heard.samples)) / 48000,
                    at / 48000.0, 0.0006);
        EXPECT_EQ(heard.samples.size(), count + (heard.begin < 0 ? 1024 : 0));
        return;
    }
    EXPECT_NEAR(static_cast<double>(loudest(heard.samples)), at, 1);
    EXPECT_EQ(heard.begin, Fraction(0));
    EXPECT_GE(heard.samples.size(), count);
    EXPECT_LT(heard.samples.size(), count + 1024); // no reader takes off the end of AAC in MP4
    const ReadBack clip(file(name), AVMEDIA_TYPE_AUDIO);
    // A part of the file's length in Matroska, and in MP4 before FFmpeg 5.
    const double primed = std::string(codec) == "aac"    ? 1024
                          : std::string(codec) == "opus" ? 312
                                                         : 0;
    const double runIn = matroska || !test::beginsAnywhere() ? primed / 48000 : 0;
    EXPECT_NEAR(static_cast<double>(clip.file().duration) / AV_TIME_BASE, count / 48000.0 + runIn,
                0.0011);
}

INSTANTIATE_TEST_SUITE_P(Files, ClipWriterSoundTest,
                         ::testing::Values(std::tuple("a.m4a", "aac"), std::tuple("a.m4a", "alac"),
                                           std::tuple("a.mp4", "opus"), std::tuple("a.mp4", "flac"),
                                           std::tuple("a.mov", "pcm_s24le"),
                                           std::tuple("a.mkv", "aac"), std::tuple("a.mkv", "opus"),
                                           std::tuple("a.webm", "opus"), std::tuple("a.wav", "pcm"),
                                           std::tuple("a.wav", "pcm_s16le"),
                                           std::tuple("a.flac", "flac"),
                                           std::tuple("a.mka", "flac")));

TEST_F(ClipWriterTest, SoundWithoutLossComesBackBitForBit) {
    constexpr std::size_t count = 10007;
    std::vector<float> samples(2 * count);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(static_cast<int>(i * 7919 % 16777216) - 8388608) / 8388608;
    for (const char* name : {"a.wav", "a.flac", "a.mka", "a.mov"}) {
        ClipWriterOptions options;
        options.audioRate = 44100;
        options.audioCodec = std::string(name) == "a.mov" ? "alac" : "";
        ClipWriter writer(file(name), options);
        writer.writeSamples(samples.data(), count, 2);
        writer.finish();
        EXPECT_EQ(readHeard(file(name)).samples, samples) << name;
    }
}

TEST_F(ClipWriterTest, ShortLastFramesLoseNoSamplesInMatroska) {
    // The encoder's run-in, which readers take off from FFmpeg 9 on.
    const std::size_t runIn = avformat_version() >= AV_VERSION_INT(63, 0, 0) ? 22 : 0;
    for (const std::size_t count : {576U, 1536U, 2000U}) {
        ClipWriterOptions options;
        options.audioRate = 16000;
        options.audioCodec = "g722";
        options.audioChannels = 1;
        ClipWriter writer(file("a.mka"), options);
        const std::vector<float> samples(count, 0.1F);
        writer.writeSamples(samples.data(), count, 1);
        writer.finish();
        EXPECT_EQ(readHeard(file("a.mka")).samples.size(), count - runIn);
    }
}

// STREAMINFO: 13 bytes, four bits, then 36 bits for how many samples, then their MD5.
TEST_F(ClipWriterTest, TheHeadOfFlacTellsItsSamples) {
    constexpr int count = 10007;
    std::vector<float> samples;
    std::vector<uint8_t> bytes; // as integers of 24 bits
    for (int i = 0; i < count; ++i) {
        const int value = i * 7919 % 16777216 - 8388608;
        samples.push_back(static_cast<float>(value) / 8388608);
        for (int shift = 0; shift < 24; shift += 8)
            bytes.push_back(static_cast<uint8_t>(static_cast<unsigned>(value) >> shift));
    }
    std::vector<uint8_t> sum(16);
    av_md5_sum(sum.data(), bytes.data(),
               static_cast<decltype(AVPacketSideData::size)>(bytes.size()));
    for (const char* name : {"a.flac", "a.mka", "a.mp4"}) {
        ClipWriterOptions options;
        options.rate = 25;
        options.codec = std::string(name) == "a.mp4" ? "mjpeg" : "";
        options.audioRate = 44100;
        options.audioCodec = "flac";
        ClipWriter writer(file(name), options);
        writer.writeSamples(samples.data(), count, 1);
        if (std::string(name) == "a.mp4")
            writer.writePicture(rgbPicture(0));
        writer.finish();
        const test::InputPointer clip = test::openInput(file(name));
        const int index = av_find_best_stream(clip.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
        ASSERT_GE(index, 0) << name;
        const AVCodecParameters& codec = *clip->streams[index]->codecpar;
        ASSERT_EQ(codec.extradata_size, 34) << name;
        const uint8_t* head = codec.extradata;
        EXPECT_EQ(head[13] & 15, 0) << name;
        EXPECT_EQ(AV_RB32(head + 14), count) << name;
        EXPECT_EQ(std::vector<uint8_t>(head + 18, head + 34), sum) << name;
    }
}

TEST_F(ClipWriterTest, SoundStandsBesideItsPicture) {
    for (const char* codec : {"aac", "opus", "alac"}) {
        // ALAC in MP4 came with FFmpeg 5.
        const std::string path = file(std::string(codec) == "alac" ? "clip.mov" : "clip.mp4");
        for (const Fraction& begin : {Fraction(0), Fraction(1, 3), Fraction(5)}) {
            if (begin.denominator != 1 && !test::beginsAnywhere())
                continue; // refused, as beginnings of pictures are
            ClipWriterOptions options;
            options.rate = 25;
            options.audioRate = 48000;
            options.audioCodec = codec;
            ClipWriter writer(path, options);
            const std::vector<float> samples = click(48000, 24000);
            writer.writeSamples(samples.data(), 20000, 1, begin);
            for (int i = 0; i < 50; ++i)
                writer.writePicture(rgbPicture(i));
            writer.writeSamples(samples.data() + 20000, 28000, 1);
            writer.finish();
            const test::HeardSound heard = readHeard(path);
            const Fraction at =
                heard.begin + Fraction(static_cast<int64_t>(loudest(heard.samples)), 48000);
            const Fraction off = at - (begin + Fraction(1, 2));
            EXPECT_LE(off < 0 ? -off : off, Fraction(1, 48000)) << codec << " from " << begin;
            EXPECT_EQ(heard.begin, begin) << codec;
            EXPECT_EQ(timesIn(path).size(), 50U);
            EXPECT_EQ(timesIn(path)[0], Fraction(0));
        }
    }
}

} // namespace
} // namespace tio::ffmpeg
