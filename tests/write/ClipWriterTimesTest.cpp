#include "ClipWriterFixture.h"
#include "ReadBack.h"
#include "support/Interception.h"

#include <TARN/videoio/ClipWriter.h>
#include <TARN/videoio/FrameReader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::click;
using test::ClipWriterTest;
using test::durationIn;
using test::Fraction;
using test::loudest;
using test::ntsc;
using test::ReadBack;
using test::readHeard;
using test::rgbPicture;
using test::steady;
using test::Times;
using test::timesIn;
using test::withCodec;
using ::testing::ElementsAreArray;

// Times and durations, for every codec in MP4.

struct TimesCase {
    const char* name;
    Times times;
};

const std::vector<TimesCase> timesCases = {
    {"steady", steady},
    {"ntsc", ntsc(20)},
    {"fractions", {0, {1, 7}, {1, 3}, {1, 2}, {3, 5}, {7, 10}, {4, 5}, {9, 10}}},
    {"microseconds", {{1, 1000000}, {500001, 1000000}, {999999, 1000000}, {5000000, 1000000}}},
    {"pauseOfDays", {0, {1, 25}, {2, 25}, 3 * 86400, 3 * 86400 + Fraction(1, 25)}},
    {"wallClock",
     {{1732023912123457, 1000000}, {1732023912156790, 1000000}, {1732023912190123, 1000000}}},
    {"onePicture", {{5, 3}}}};

class ClipWriterCodecTest
    : public ClipWriterTest,
      public ::testing::WithParamInterface<std::tuple<const char*, TimesCase>> {};

TEST_P(ClipWriterCodecTest, GivesBackTimesCountsAndDurations) {
    const auto& [codec, given] = GetParam();
    const Fraction begin = 1000 * given.times.front();
    if (begin.denominator != 1 && !test::beginsAnywhere()) {
        EXPECT_THROW(write("clip.mp4", given.times, withCodec(codec), Fraction(1, 5)), TimeRefusal);
        return;
    }
    write("clip.mp4", given.times, withCodec(codec), Fraction(1, 5));
    EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(given.times));
    EXPECT_EQ(durationIn(file("clip.mp4")),
              given.times.back() + Fraction(1, 5) - given.times.front());
}

INSTANTIATE_TEST_SUITE_P(Codecs, ClipWriterCodecTest,
                         ::testing::Combine(::testing::Values("h264", "hevc", "av1", "vp9", "mjpeg",
                                                              "mpeg4"),
                                            ::testing::ValuesIn(timesCases)),
                         [](const auto& one) {
                             return std::string(std::get<0>(one.param)) + "_" +
                                    std::get<1>(one.param).name;
                         });

TEST_F(ClipWriterTest, PicturesFollowAtTheRate) {
    ClipWriterOptions options;
    options.rate = Fraction(30000, 1001);
    ClipWriter writer(file("clip.mp4"), options);
    for (int i = 0; i < 40; ++i)
        writer.writePicture(rgbPicture(i));
    writer.finish();
    EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(ntsc(40)));
    EXPECT_EQ(durationIn(file("clip.mp4")), Fraction(40 * 1001, 30000));
    const test::FileContents contents = test::readFile(file("clip.mp4"));
    for (std::size_t i = 1; i < contents.packets.size(); ++i)
        EXPECT_EQ(contents.packets[i].dts - contents.packets[i - 1].dts,
                  contents.packets[1].dts - contents.packets[0].dts);
}

TEST_F(ClipWriterTest, TheTimeBaseIsTheTickOfTheTrack) {
    for (const Fraction& base : {Fraction(1, 90000), Fraction(1, 2147483647), Fraction(1, 7)}) {
        ClipWriterOptions options;
        options.timeBase = base;
        const Times times = {0, base, 3 * base, 10 * base};
        write("clip.mp4", times, options);
        EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(times));
        const ReadBack clip(file("clip.mp4"), AVMEDIA_TYPE_VIDEO);
        EXPECT_EQ(clip.stream().time_base.den, base.denominator);
    }
}

TEST_F(ClipWriterTest, MatroskaRoundsToTheMillisecond) {
    for (const char* name : {"clip.mkv", "clip.webm"}) {
        write(name, ntsc(20), {}, Fraction(1, 2));
        const Times times = timesIn(file(name));
        ASSERT_EQ(times.size(), 20U);
        for (std::size_t i = 0; i < times.size(); ++i) {
            const Fraction off = times[i] - ntsc(20)[i];
            EXPECT_LE(off < 0 ? -off : off, Fraction(1, 2000)) << i;
        }
        const ReadBack clip(file(name), AVMEDIA_TYPE_VIDEO);
        EXPECT_NEAR(static_cast<double>(clip.file().duration) / AV_TIME_BASE,
                    19 * 1001 / 30000.0 + 0.5, 0.001);
    }
}

TEST_F(ClipWriterTest, BFramesAreInTheFileAndDecodeInTime) {
    ClipWriterOptions options;
    options.options["bf"] = "3";
    const Times times = {0,      {1, 30}, {1, 10}, {1, 5}, {1, 4}, {3, 10},
                         {1, 3}, {2, 3},  {3, 4},  {4, 5}, 5,      {51, 10}};
    write("clip.mp4", times, options, Fraction(7));
    const test::FileContents contents = test::readFile(file("clip.mp4"));
    bool reordered = false;
    for (std::size_t i = 1; i < contents.packets.size(); ++i) {
        EXPECT_GT(contents.packets[i].dts, contents.packets[i - 1].dts);
        EXPECT_LE(contents.packets[i].dts, contents.packets[i].pts);
        reordered = reordered || contents.packets[i].pts < contents.packets[i - 1].pts;
    }
    EXPECT_TRUE(reordered);
    EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(times));
    EXPECT_EQ(durationIn(file("clip.mp4")), Fraction(121, 10));
}

// Newer releases of FFmpeg tell for how long a packet of MP4 is decoded.
TEST_F(ClipWriterTest, TheLastPictureIsShownAsLongAsGivenHoweverLongItIsDecoded) {
    ClipWriterOptions options;
    options.options["bf"] = "3";
    const Times times = {0, {1, 10}, {11, 100}, {3, 10}, {7, 10}, {71, 100}, 1, {11, 10}};
    write("clip.mp4", times, options, Fraction(1, 4));
    std::map<int64_t, int64_t> lengths;
    const test::FileContents contents = test::readFile(file("clip.mp4"));
    for (std::size_t i = 1; i < contents.packets.size(); ++i)
        lengths[contents.packets[i - 1].dts] =
            contents.packets[i].dts - contents.packets[i - 1].dts;
    const test::FilePacket& last = contents.packets.back();
    lengths[last.dts] = 1000000;

    test::Interception ffmpeg;
    ffmpeg->av_read_frame.instead = [&](AVFormatContext* context, AVPacket* packet) {
        const int result = test::real::readFrame(context, packet);
        if (result >= 0)
            packet->duration = lengths.at(packet->dts);
        return result;
    };
    const FrameReader reader{Source(file("clip.mp4"))};
    for (int64_t frame = 0; frame + 1 < reader.frameCount(); ++frame) {
        const auto number = static_cast<std::size_t>(frame);
        EXPECT_EQ(reader.frameDuration(frame), times[number + 1] - times[number]) << frame;
    }
    EXPECT_EQ(reader.frameDuration(reader.frameCount() - 1), Fraction(1, 4));
}

// The demuxer ends a track at key pictures whose packets last longer than what is left of it.
TEST_F(ClipWriterTest, PicturesAtTheEndAreReadHoweverFarApartTheKeyPicturesAre) {
    for (const auto& [g, bf] : {std::pair("1", "2"), std::pair("2", "1"), std::pair("3", "2")}) {
        ClipWriterOptions options = withCodec("mpeg4");
        options.options = {{"g", g}, {"bf", bf}};
        for (int sparse = 1; sparse <= 4; ++sparse) {
            for (int dense = 0; dense <= 5; ++dense) {
                const Times times = test::sparseThenDense(sparse, dense);
                write("clip.mp4", times, options);
                EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(times))
                    << "g " << g << ", bf " << bf << ", " << sparse << " and " << dense;
            }
        }
    }
}

TEST_F(ClipWriterTest, CountsFromTheFirstPictureIfAsked) {
    ClipWriterOptions options;
    options.origin = ClipOrigin::First;
    write("clip.mp4", {-5, {-14, 3}, {-13, 3}}, options);
    EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(Times{0, {1, 3}, {2, 3}}));
}

TEST_F(ClipWriterTest, ReorderedPicturesKeepTheirTimesOverPauses) {
    for (const char* codec : {"h264", "mpeg4", "mpeg2video"}) {
        ClipWriterOptions options = withCodec(codec);
        options.options["bf"] = std::string(codec) == "h264" ? "3" : "2";
        Times times;
        for (int part = 0; part < 3; ++part) {
            for (int i = 0; i < 14; ++i)
                times.push_back(86400 * part + Fraction(i, 30));
        }
        write("clip.mp4", times, options);
        EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(times)) << codec;
        EXPECT_EQ(durationIn(file("clip.mp4")), times.back() + Fraction(1, 30)) << codec;
    }
}

// Their way through the encoder is up to 18 pictures long.
TEST_F(ClipWriterTest, ReorderedPicturesFarApartInFineTicksAreHeldOrRefused) {
    struct Encoder {
        const char* codec;
        const char* bf;
        int64_t scale;
    };
    for (const Encoder& one : {Encoder{"hevc", "", 5000000}, Encoder{"mpeg4", "16", 3000000},
                               Encoder{"h264", "16", 1000000}, Encoder{"mpeg4", "16", 1000000}}) {
        ClipWriterOptions options = withCodec(one.codec);
        options.timeBase = Fraction(1, one.scale);
        if (*one.bf != 0)
            options.options = {{"bf", one.bf}};
        if (std::string(one.codec) != "hevc")
            options.options["sc_threshold"] = "0";
        Times times;
        ClipWriter writer(file("clip.mp4"), options);
        for (int i = 0; i < 40; ++i) {
            const Fraction time(99 * i, 10);
            try {
                writer.writePicture(rgbPicture(i / 8), time);
                times.push_back(time);
            } catch (const TimeRefusal&) {
                EXPECT_GT(one.scale, 1000000) << one.codec;
                break;
            }
        }
        writer.finish();
        EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(times)) << one.codec;
    }
}

TEST_F(ClipWriterTest, ReorderedPicturesKeepTheirTimesInFineTicks) {
    ClipWriterOptions options;
    options.timeBase = Fraction(1, 2147483647);
    Times times;
    for (int64_t i = 0; i < 42; ++i)
        times.emplace_back(i * 71582789, 2147483647);
    write("clip.mp4", times, options);
    EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(times));
}

TEST_F(ClipWriterTest, SoundOfEveryCodecLeavesThePicturesOfMatroskaWhereTheyAre) {
    for (const char* codec : {"aac", "opus", "flac"}) {
        ClipWriterOptions options;
        options.rate = 25;
        options.audioRate = 48000;
        options.audioCodec = codec;
        ClipWriter writer(file("clip.mkv"), options);
        const std::vector<float> samples = click(48000, 24000);
        for (int i = 0; i < 25; ++i)
            writer.writePicture(rgbPicture(i));
        writer.writeSamples(samples.data(), samples.size(), 1);
        writer.finish();
        EXPECT_EQ(timesIn(file("clip.mkv")).front(), Fraction(0)) << codec;
        const test::HeardSound heard = readHeard(file("clip.mkv"));
        EXPECT_NEAR(heard.begin.toDouble() + static_cast<double>(loudest(heard.samples)) / 48000,
                    0.5, 0.0006)
            << codec;
    }
}

// Each begins where the one before ends; the first one at 0.
TEST_F(ClipWriterTest, PicturesMayHaveADurationAloneWithoutARate) {
    ClipWriter clip(file("clip.mp4"));
    EXPECT_THROW(clip.writePicture(rgbPicture(0)), ClipRefusal);
    clip.writePicture(rgbPicture(0), std::nullopt, Fraction(1, 10));
    clip.writePicture(rgbPicture(1), std::nullopt, Fraction(1, 4));
    clip.writePicture(rgbPicture(2), Fraction(1, 2));
    EXPECT_THROW(clip.writePicture(rgbPicture(3)), ClipRefusal);
    EXPECT_THROW(clip.writePicture(rgbPicture(3), std::nullopt, Fraction(1)), ClipRefusal);
    clip.writePicture(rgbPicture(3), Fraction(1), Fraction(1, 3));
    clip.finish();
    const FrameReader reader{Source(file("clip.mp4"))};
    ASSERT_EQ(reader.frameCount(), 4);
    EXPECT_EQ(reader.frameTime(1), Fraction(1, 10));
    EXPECT_EQ(reader.frameTime(2), Fraction(1, 2));
    EXPECT_EQ(reader.frameTime(3), Fraction(1));
    EXPECT_EQ(durationIn(file("clip.mp4")), Fraction(4, 3));
}

} // namespace
} // namespace tio::ffmpeg
