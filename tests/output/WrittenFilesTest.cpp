#include "support/EncoderInput.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/Muxing.h"
#include "support/Oracle.h"
#include "support/Picture.h"
#include "support/TemporaryFolder.h"
#include "support/WrittenFile.h"

#include <TARN/videoio/AudioStreamDecoder.h>
#include <TARN/videoio/AudioStreamEncoder.h>
#include <TARN/videoio/VideoStreamDecoder.h>
#include <TARN/videoio/VideoStreamEncoder.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::FileContents;
using test::numberedBlock;
using test::numberedImage;
using ::testing::HasSubstr;
using ::testing::SizeIs;

constexpr int rows = 64;
constexpr int cols = 96;

// Writes a numbered picture at each of these ticks and completes the file.
void writePictures(const std::string& path, Rational timeBase, const std::vector<int64_t>& ticks) {
    const auto output = std::make_shared<OutputFormatContext>(path);
    {
        VideoStreamEncoder video(output, {rows, cols}, timeBase);
        for (size_t n = 0; n < ticks.size(); ++n)
            video.writeNextFrame(numberedImage(rows, cols, static_cast<int>(n)),
                                 Rational(ticks[n], 1) * timeBase);
    }
    output->finish();
}

std::vector<int64_t> evenTicks(size_t count, int64_t distance) {
    std::vector<int64_t> ticks;
    for (size_t n = 0; n < count; ++n)
        ticks.push_back(static_cast<int64_t>(n) * distance);
    return ticks;
}

// Nothing is lost: as many pictures come back as went in, each at its time.

struct Course {
    const char* name;
    Rational timeBase;
    std::vector<int64_t> ticks;
};

void PrintTo(const Course& course, std::ostream* out) {
    *out << course.name;
}

class EveryPictureTest : public ::testing::TestWithParam<Course> {
protected:
    EveryPictureTest() { writePictures(path, GetParam().timeBase, GetParam().ticks); }

    [[nodiscard]] size_t count() const { return GetParam().ticks.size(); }

    // The first picture is time zero.
    [[nodiscard]] Rational timeOf(size_t n) const {
        return Rational(GetParam().ticks[n] - GetParam().ticks[0], 1) * GetParam().timeBase;
    }

    test::TemporaryFolder folder;
    std::string path = folder.file("out.mp4");
};

TEST_P(EveryPictureTest, ComesBackFromOurReader) {
    VideoStreamDecoder decoder(std::make_shared<InputFormatContext>(path), PixelFormat::RGB);
    EXPECT_EQ(decoder.getFrameCount(), static_cast<int64_t>(count()));
    for (size_t n = 0; n < count(); ++n) {
        const auto frame = decoder.readNextFrame();
        ASSERT_NE(frame.frame, nullptr) << n;
        EXPECT_EQ(frame.timestamp, timeOf(n)) << n;
        const auto& plane = static_cast<tio::Frame<tio::PixelFormat::RGB>&>(*frame.frame).plane;
        EXPECT_EQ(test::readPictureNumber(plane.data(), cols, rows), static_cast<int>(n));
    }
    EXPECT_EQ(decoder.readNextFrame().frame, nullptr);
}

TEST_P(EveryPictureTest, ComesBackFromFfmpegCalledDirectly) {
    test::OracleOptions options;
    options.keepPixels = true;
    const auto frames = test::oracleFrames(path, options);
    ASSERT_THAT(frames, SizeIs(count()));
    for (size_t n = 0; n < count(); ++n) {
        const auto time = frames[n].time();
        EXPECT_EQ(Rational(time.numerator, time.denominator), timeOf(n)) << n;
        EXPECT_EQ(test::readPictureNumber(frames[n].pixels.data(), cols, rows),
                  static_cast<int>(n));
    }
}

TEST_P(EveryPictureTest, IsAPacketWithADuration) {
    const FileContents file = test::readFile(path);
    const auto packets = file.of(0);
    ASSERT_THAT(packets, SizeIs(count()));
    EXPECT_EQ(file.streams[0].frames, static_cast<int64_t>(count()));
    for (size_t n = 0; n < count(); ++n) {
        EXPECT_EQ(packets[n].dts, packets[n].pts) << "no B-frames";
        EXPECT_GT(packets[n].duration, 0) << n;
    }
}

// Neighbours and long gaps in turn, the longest before the last picture.
std::vector<int64_t> unevenTicks() {
    std::vector<int64_t> ticks;
    int64_t now = 0;
    for (const int64_t distance : {1, 2, 1, 7, 1, 1, 30, 2, 5, 1, 10, 1, 3, 60})
        ticks.push_back(now += distance);
    return ticks;
}

std::vector<int64_t> times3003And7(std::vector<int64_t> ticks) {
    for (size_t i = 0; i < ticks.size(); ++i)
        ticks[i] = 3003 * ticks[i] + 7 * static_cast<int64_t>(i % 3);
    return ticks;
}

INSTANTIATE_TEST_SUITE_P(
    Written, EveryPictureTest,
    ::testing::Values(Course{"EvenIn30ths", {1, 30}, evenTicks(40, 1)},
                      Course{"UnevenIn30ths", {1, 30}, unevenTicks()},
                      Course{"EvenIn90000ths", {1, 90000}, evenTicks(40, 3003)},
                      Course{"UnevenIn90000ths", {1, 90000}, times3003And7(unevenTicks())},
                      Course{"Ntsc", {1001, 30000}, evenTicks(70, 1)}, Course{"One", {1, 30}, {0}},
                      Course{"OneIn90000ths", {1, 90000}, {0}}, Course{"Two", {1, 30}, {5, 8}}),
    [](const auto& course) { return course.param.name; });

// What the muxer is given, tick by tick

class PacketDurationTest : public ::testing::Test {
protected:
    test::TemporaryFolder folder;
    test::Interception intercepted;
};

TEST_F(PacketDurationTest, EachPictureLastsTheShorterOfTheTwoDistancesBeforeIt) {
    test::MuxerRecord muxer(test::MuxerRecord::Then::PassOn);
    writePictures(folder.file("out.mp4"), Rational(1, 30), {0, 1, 3, 10});
    // In the file's time base of 1/90000 a tick is 3000.
    EXPECT_THAT(muxer.all(&test::MuxedPacket::duration),
                ::testing::ElementsAre(3000, 3000, 3000, 6000));
}

TEST_F(PacketDurationTest, TheFirstPictureOfAFineTimeBaseLastsOneTickOfIt) {
    test::MuxerRecord muxer(test::MuxerRecord::Then::PassOn);
    writePictures(folder.file("out.mp4"), Rational(1, 90000), {0, 3600, 7203});
    EXPECT_THAT(muxer.all(&test::MuxedPacket::duration), ::testing::ElementsAre(1, 3600, 3600));
}

// What is in the files

class WrittenFilesTest : public ::testing::Test {
protected:
    // Pictures at 25 a second and stereo sound, a second of both, written side by side.
    void writeBoth() const {
        const auto output = std::make_shared<OutputFormatContext>(path);
        {
            VideoStreamEncoder video(output, {rows, cols}, Rational(1, 25));
            AudioStreamEncoder audio(output, 3, 48000, Rational());
            int64_t block = 0;
            for (int n = 0; n < 25; ++n) {
                video.writeNextFrame(numberedImage(rows, cols, n), Rational(n, 25));
                for (; 1024 * block * 25 < 48000 * (n + 1); ++block)
                    audio.writeNextFrame(numberedBlock(1024, 2), Rational(1024 * block, 48000));
            }
        }
        output->finish();
    }

    test::TemporaryFolder folder;
    std::string path = folder.file("out.mp4");
};

TEST_F(WrittenFilesTest, TheVideoStreamIsH264High) {
    writePictures(path, Rational(1, 25), evenTicks(25, 1));
    const FileContents file = test::readFile(path);
    ASSERT_THAT(file.streams, SizeIs(1));
    const auto& video = file.streams[0];
    EXPECT_EQ(video.type, AVMEDIA_TYPE_VIDEO);
    EXPECT_EQ(video.codec, AV_CODEC_ID_H264);
    EXPECT_EQ(video.profile, 100) << "High";
    EXPECT_EQ(video.width, cols);
    EXPECT_EQ(video.height, rows);
    EXPECT_EQ(Rational(video.timeBase), Rational(1, 90000));
    EXPECT_EQ(video.start, 0);
    EXPECT_EQ(video.duration, 90000) << "a second";
    EXPECT_EQ(video.frames, 25);
    EXPECT_EQ(file.ptsOf(0), evenTicks(25, 3600));
    EXPECT_TRUE(file.packets[0].key);
}

// 300 pictures, nothing for 60 s, 5 pictures: 70 s and 5/30, not 60 s more.
TEST_F(WrittenFilesTest, APauseDoesNotMakeTheFileLonger) {
    auto ticks = evenTicks(300, 1);
    for (const int64_t tick : evenTicks(5, 1))
        ticks.push_back(2100 + tick);
    writePictures(path, Rational(1, 30), ticks);
    const FileContents file = test::readFile(path);
    EXPECT_EQ(file.streams[0].duration, 2105 * 3000);
    // Releases before 7.1 count milliseconds in the file's header.
    EXPECT_THAT(test::openInput(path)->duration, testing::AnyOf(70166667, 70167000));
    EXPECT_EQ(file.of(0).back().duration, 3000);
}

TEST_F(WrittenFilesTest, TheAudioStreamIsAacLowComplexity) {
    const auto output = std::make_shared<OutputFormatContext>(path);
    {
        AudioStreamEncoder audio(output, 3, 44100, Rational());
        for (int64_t i = 0; i < 43; ++i)
            audio.writeNextFrame(numberedBlock(1024, 2), Rational(1024 * i, 44100));
    }
    output->finish();
    const FileContents file = test::readFile(path);
    ASSERT_THAT(file.streams, SizeIs(1));
    const auto& audio = file.streams[0];
    EXPECT_EQ(audio.type, AVMEDIA_TYPE_AUDIO);
    EXPECT_EQ(audio.codec, AV_CODEC_ID_AAC);
    EXPECT_EQ(audio.profile, 1) << "LC";
    EXPECT_EQ(audio.sampleRate, 44100);
    EXPECT_EQ(audio.channels, 2);
    EXPECT_EQ(Rational(audio.timeBase), Rational(1, 44100));
    EXPECT_EQ(audio.duration, 1024 * 44) << "the blocks and the encoder's delay before them";
    EXPECT_EQ(file.ptsOf(0), evenTicks(44, 1024));
}

TEST_F(WrittenFilesTest, OddPicturesAreWrittenWithEvenSides) {
    const auto output = std::make_shared<OutputFormatContext>(path);
    {
        VideoStreamEncoder video(output, {63, 95}, Rational(1, 25));
        for (int64_t n = 0; n < 3; ++n)
            video.writeNextFrame(numberedImage(63, 95, static_cast<int>(n)), Rational(n, 25));
    }
    output->finish();
    const auto frames = test::oracleFrames(path);
    ASSERT_THAT(frames, SizeIs(3));
    EXPECT_EQ(frames[0].width, 96);
    EXPECT_EQ(frames[0].height, 64);
}

TEST_F(WrittenFilesTest, PicturesAndSoundBothComeBackWhole) {
    writeBoth();
    const FileContents file = test::readFile(path);
    ASSERT_THAT(file.streams, SizeIs(2));
    EXPECT_THAT(file.of(file.find(AVMEDIA_TYPE_VIDEO)), SizeIs(25));
    // 47 blocks hold a second. The encoder's delay makes one more, before zero.
    EXPECT_THAT(file.of(file.find(AVMEDIA_TYPE_AUDIO)), SizeIs(48));
    AudioStreamDecoder audio(std::make_shared<InputFormatContext>(path));
    size_t blocks = 0;
    while (audio.readNextFrame().samples.count != 0)
        ++blocks;
    EXPECT_EQ(blocks, test::readSound(path).size());
    EXPECT_EQ(blocks, 47u);
}

TEST_F(WrittenFilesTest, SoundBeforeZeroKeepsItsTime) {
    writeBoth();
    const FileContents file = test::readFile(path);
    const auto pts = file.ptsOf(file.find(AVMEDIA_TYPE_AUDIO));
    EXPECT_EQ(pts.front(), -1024);
    EXPECT_EQ(pts.back(), 1024 * 46);
}

// Both streams begin 1/7 s after a whole second of 2023. A tick of sound is 10 us.
TEST_F(WrittenFilesTest, PicturesAndSoundOfAWallClockBeginTogether) {
    const Rational start = Rational(1700000000, 1) + Rational(1, 7);
    const auto output = std::make_shared<OutputFormatContext>(path);
    {
        VideoStreamEncoder video(output, {rows, cols}, Rational(1, 1000000));
        AudioStreamEncoder audio(output, 3, 96000, Rational());
        for (int n = 0; n < 10; ++n)
            video.writeNextFrame(numberedImage(rows, cols, n), start + Rational(n, 25));
        for (int64_t i = 0; i < 18; ++i)
            audio.writeNextFrame(numberedBlock(1024, 2), start + Rational(1024 * i, 96000));
    }
    output->finish();
    const FileContents file = test::readFile(path);
    const auto pictures = file.ptsOf(file.find(AVMEDIA_TYPE_VIDEO));
    ASSERT_THAT(pictures, SizeIs(10));
    for (size_t n = 0; n < pictures.size(); ++n)
        EXPECT_NEAR(static_cast<double>(pictures[n]), 3600.0 * static_cast<double>(n), 1) << n;
    const auto sound = file.ptsOf(file.find(AVMEDIA_TYPE_AUDIO));
    ASSERT_THAT(sound, SizeIs(19));
    for (size_t i = 0; i < sound.size(); ++i) // the encoder's delay comes first
        EXPECT_NEAR(static_cast<double>(sound[i]), 1024.0 * (static_cast<double>(i) - 1), 2) << i;
}

TEST_F(WrittenFilesTest, AreMp4WhateverTheirNameSays) {
    for (const char* name : {"out.avi", "out.mkv", "out", "out.png"}) {
        writePictures(folder.file(name), Rational(1, 25), {0, 1});
        EXPECT_THAT(test::readFile(folder.file(name)).format, HasSubstr("mp4")) << name;
    }
}

TEST_F(WrittenFilesTest, ReplaceAFileOfThatName) {
    writePictures(path, Rational(1, 25), evenTicks(50, 1));
    writePictures(path, Rational(1, 25), evenTicks(3, 1));
    EXPECT_THAT(test::readFile(path).packets, SizeIs(3));
}

TEST_F(WrittenFilesTest, TenPicturesWithoutATimeStillMakeAFile) {
    const auto output = std::make_shared<OutputFormatContext>(path);
    {
        VideoStreamEncoder video(output, {rows, cols}, Rational(1, 25));
        for (int n = 0; n < 10; ++n)
            video.writeNextFrame(numberedImage(rows, cols, n));
    }
    EXPECT_NO_THROW(output->finish());
    EXPECT_THAT(test::readFile(path).packets, SizeIs(10));
}

// The program that comes with FFmpeg sees the same

class FfprobeTest : public WrittenFilesTest {
protected:
    void SetUp() override {
        if (std::system("ffprobe -version > /dev/null 2>&1") != 0)
            GTEST_SKIP() << "the program ffprobe is not installed";
    }

    // What it prints about one stream.
    [[nodiscard]] std::string probe(const std::string& stream, const std::string& entries) const {
        const std::string command = "ffprobe -v error -count_frames -select_streams " + stream +
                                    " -show_entries " + entries +
                                    " -of default=noprint_wrappers=1 '" + path + "'";
        FILE* pipe = popen(command.c_str(), "r");
        std::string text;
        for (int c = std::getc(pipe); c != EOF; c = std::getc(pipe))
            text += static_cast<char>(c);
        EXPECT_EQ(pclose(pipe), 0) << command;
        return text;
    }
};

TEST_F(FfprobeTest, SeesThePictures) {
    writeBoth();
    EXPECT_EQ(probe("v", "stream=codec_name,profile,width,height,time_base,duration_ts,nb_frames,"
                         "nb_read_frames"),
              "codec_name=h264\nprofile=High\nwidth=96\nheight=64\ntime_base=1/90000\n"
              "duration_ts=90000\nnb_frames=25\nnb_read_frames=25\n");
}

TEST_F(FfprobeTest, SeesTheTimesOfThePictures) {
    writePictures(path, Rational(1, 30), {0, 1, 3, 10});
    EXPECT_EQ(probe("v", "packet=pts"), "pts=0\npts=3000\npts=9000\npts=30000\n");
}

TEST_F(FfprobeTest, SeesTheSound) {
    writeBoth();
    EXPECT_EQ(probe("a", "stream=codec_name,profile,sample_rate,channels,time_base,nb_frames,"
                         "nb_read_frames"),
              "codec_name=aac\nprofile=LC\nsample_rate=48000\nchannels=2\ntime_base=1/48000\n"
              "nb_frames=48\nnb_read_frames=47\n");
}

} // namespace
} // namespace tio::ffmpeg
