#include "ClipWriterFixture.h"
#include "ReadBack.h"
#include "support/Expectations.h"

#include <TARN/videoio/ClipWriter.h>
#include <TARN/videoio/Exception.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::click;
using test::ClipWriterTest;
using test::Fraction;
using test::loudest;
using test::readHeard;
using test::rgbPicture;
using test::Times;
using test::timesIn;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

// Files that are written while they grow.

ClipWriterOptions inFragments() {
    ClipWriterOptions options;
    options.fragmented = true;
    return options;
}

// Key pictures come each second and nowhere else, whatever the release of x264 takes for a new
// scene.
void keepToScene(ClipWriterOptions& options) {
    options.options["sc_threshold"] = "0";
}

Times atRate(int count, Fraction step) {
    Times times;
    for (int i = 0; i < count; ++i)
        times.push_back(Fraction(i) * step);
    return times;
}

std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

int countOf(const std::string& bytes, const std::string& part) {
    int count = 0;
    for (std::size_t at = bytes.find(part); at != std::string::npos; at = bytes.find(part, at + 1))
        ++count;
    return count;
}

class FragmentsTest : public ClipWriterTest,
                      public ::testing::WithParamInterface<std::tuple<const char*, const char*>> {};

TEST_P(FragmentsTest, GiveBackTheTimesInFragmentsOfASecond) {
    const auto& [codec, name] = GetParam();
    for (const Fraction& step : {Fraction(1, 25), Fraction(1001, 30000)}) {
        ClipWriterOptions options = inFragments();
        options.codec = codec;
        options.rate = Fraction(1) / step;
        if (std::string(codec) == "h264")
            keepToScene(options);
        if (std::string(name) == "clip.mov" && codec[0] != 'h') {
            EXPECT_THROW(ClipWriter(file(name), options), ClipRefusal);
            continue;
        }
        const Times times = atRate(100, step);
        write(name, times, options);
        const bool rounds = std::string(name) == "clip.mkv";
        const Times found = timesIn(file(name));
        ASSERT_EQ(found.size(), times.size());
        for (std::size_t i = 0; i < times.size(); ++i) {
            const Fraction off = found[i] - times[i];
            EXPECT_LE(off < 0 ? -off : off, rounds ? Fraction(1, 2000) : Fraction(0)) << i;
        }
        Fraction key = -1;
        const test::FileContents contents = test::readFile(file(name));
        for (const test::FilePacket& packet : contents.packets) {
            const Fraction time = test::secondsOf(packet.pts, contents.streams[0].timeBase);
            if (packet.key)
                key = time;
            EXPECT_LT(time - key, Fraction(1) + Fraction(1, 1000));
        }
        if (!rounds) {
            EXPECT_EQ(countOf(bytesOf(file(name)), "moof"), 4);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, FragmentsTest,
                         ::testing::Combine(::testing::Values("h264", "hevc", "vp9", "av1"),
                                            ::testing::Values("clip.mp4", "clip.mov", "clip.mkv")),
                         [](const auto& one) {
                             return std::string(std::get<0>(one.param)) + "_" +
                                    std::string(std::get<1>(one.param)).substr(5);
                         });

TEST_F(ClipWriterTest, FragmentsHoldAnyTimesOnTheirGrid) {
    const Times times = {{1, 1000000}, {500001, 1000000}, {999999, 1000000}, 3, {90003, 30000},
                         60,           {60040, 1000}};
    if (!test::beginsAnywhere())
        GTEST_SKIP() << "this FFmpeg begins tracks at milliseconds alone";
    write("clip.mp4", times, inFragments(), Fraction(1, 5));
    EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(times));
    ClipWriter writer(file("other.mp4"), inFragments());
    writer.writePicture(rgbPicture(0), Fraction(0));
    try {
        writer.writePicture(rgbPicture(1), Fraction(1, 7));
        ADD_FAILURE() << "it was taken";
    } catch (const TimeRefusal& refusal) {
        EXPECT_EQ(refusal.nearest(), Fraction(428571, 3000000));
    }
}

TEST_F(ClipWriterTest, SoundInFragmentsStandsWithItsPictures) {
    for (const char* name : {"clip.mp4", "clip.mkv"}) {
        for (const char* codec : {"aac", "opus", "flac"}) {
            ClipWriterOptions options = inFragments();
            options.rate = 25;
            options.audioRate = 48000;
            options.audioCodec = codec;
            ClipWriter writer(file(name), options);
            const std::vector<float> samples = click(96000, 72000);
            for (int i = 0; i < 50; ++i) {
                writer.writePicture(rgbPicture(i));
                writer.writeSamples(samples.data() + std::ptrdiff_t{i} * 1920, 1920, 1);
            }
            writer.finish();
            EXPECT_THAT(timesIn(file(name)).size(), 50U) << name << codec;
            EXPECT_EQ(timesIn(file(name)).front(), Fraction(0)) << name << codec;
            const test::HeardSound heard = readHeard(file(name));
            EXPECT_NEAR(heard.begin.toDouble() +
                            static_cast<double>(loudest(heard.samples)) / 48000,
                        1.5, 0.0006)
                << name << codec;
        }
    }
}

TEST_F(ClipWriterTest, WhatIsWrittenInFragmentsStaysWithoutAnEnd) {
    for (const char* name : {"clip.mp4", "clip.mkv"}) {
        {
            ClipWriterOptions options = inFragments();
            keepToScene(options);
            options.rate = 25;
            ClipWriter writer(file(name), options);
            for (int i = 0; i < 250; ++i)
                writer.writePicture(rgbPicture(i));
        }
        const Times times = timesIn(file(name));
        EXPECT_GE(times.size(), 100U) << name;
        EXPECT_EQ(times.size() % 25, 0U) << name;
    }
    EXPECT_EQ(filesLeft(), 2);
}

TEST_F(ClipWriterTest, NothingIsThereBeforeTheFirstFragment) {
    ClipWriterOptions options = inFragments();
    options.rate = 25;
    {
        ClipWriter writer(file("clip.mp4"), options);
        writer.writePicture(rgbPicture(0));
        EXPECT_FALSE(std::filesystem::exists(file("clip.mp4")));
    }
    EXPECT_EQ(filesLeft(), 0);
}

TEST_F(ClipWriterTest, FragmentsWaitForTheOtherTrackNotForEver) {
    ClipWriterOptions options = inFragments();
    options.rate = 25;
    options.audioRate = 48000;
    ClipWriter pictures(file("pictures.mp4"), options);
    int written = 0;
    EXPECT_THROW(
        {
            for (; written < 1000; ++written)
                pictures.writePicture(rgbPicture(written));
        },
        ClipRefusal);
    EXPECT_EQ(written, 251);
    const std::vector<float> samples(48000);
    pictures.writeSamples(samples.data(), samples.size(), 1);
    pictures.writePicture(rgbPicture(written));
    pictures.finish();
    EXPECT_EQ(timesIn(file("pictures.mp4")).size(), 252U);
    options.audioCodec = "flac";
    ClipWriter sound(file("sound.mp4"), options);
    for (int i = 0; i < 10; ++i)
        sound.writeSamples(samples.data(), samples.size(), 1);
    EXPECT_THROW(sound.writeSamples(samples.data(), samples.size(), 1), ClipRefusal);
    sound.writePicture(rgbPicture(0));
    sound.writeSamples(samples.data(), samples.size(), 1);
    sound.finish();
    EXPECT_EQ(readHeard(file("sound.mp4")).samples.size(), 11U * 48000);
}

TEST_F(ClipWriterTest, PicturesThatAnEncoderDropsAreMissed) {
    if (avcodec_find_encoder_by_name("libvpx") == nullptr)
        GTEST_SKIP() << "an encoder that drops pictures is missing";
    for (const bool fragmented : {false, true}) {
        ClipWriterOptions options;
        options.fragmented = fragmented;
        options.rate = 25;
        options.codec = "libvpx";
        options.bitRate = 5000;
        options.options = {
            {"drop-threshold", "90"}, {"deadline", "realtime"}, {"lag-in-frames", "0"}};
        ClipWriter writer(file("clip.webm"), options);
        Image noise(PictureFormat::Grey8, 120, 160);
        uint32_t state = 1;
        for (int i = 0; i < 50; ++i) {
            for (int64_t byte = 0; byte < noise.byteCount(); ++byte) {
                state = state * 1664525 + 1013904223;
                noise.view().planes[0][byte] = static_cast<uint8_t>(state >> 24);
            }
            writer.writePicture(noise);
        }
        try {
            writer.finish();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const tio::Exception& failure) {
            EXPECT_THAT(failure.what(), HasSubstr("of 50 pictures the encoder gave"));
        }
    }
}

TEST_F(ClipWriterTest, SoundAloneInFragments) {
    for (const char* name : {"clip.m4a", "clip.mka"}) {
        ClipWriterOptions options = inFragments();
        options.audioRate = 48000;
        options.audioCodec = std::string(name) == "clip.m4a" ? "alac" : "flac";
        const std::vector<float> samples = click(48000 * 5, 100000);
        ClipWriter writer(file(name), options);
        writer.writeSamples(samples.data(), samples.size(), 1);
        writer.finish();
        EXPECT_EQ(readHeard(file(name)).samples.size(), samples.size()) << name;
        EXPECT_EQ(loudest(readHeard(file(name)).samples), 100000U) << name;
    }
    for (const char* name : {"clip.wav", "clip.flac"}) {
        ClipWriterOptions options = inFragments();
        options.audioRate = 48000;
        EXPECT_THROW(ClipWriter(file(name), options), ClipRefusal);
    }
}

// The child writes for as long as it lives. It tells when pictures of so many seconds were taken.
pid_t startWriting(const std::string& path, const ClipWriterOptions& options) {
    const pid_t child = ::fork();
    if (child != 0)
        return child;
    ::alarm(60);
    try {
        ClipWriter writer(path, options);
        for (int i = 0;; ++i)
            writer.writePicture(rgbPicture(i));
    } catch (...) {
    }
    ::_exit(1);
}

// What is known of the first fragment's pictures then is that pause alone.
TEST_F(ClipWriterTest, OnePictureAndALongPauseAreWrittenInFragments) {
    for (const char* codec : {"h264", "hevc"}) {
        ClipWriterOptions options = test::withCodec(codec);
        options.fragmented = true;
        write("clip.mp4", {0, 300, 301}, options);
        EXPECT_THAT(test::timesIn(file("clip.mp4")),
                    ::testing::ElementsAre(Fraction(0), Fraction(300), Fraction(301)))
            << codec;
    }
}

// How often each test kills; 200 where somebody has the time (TARN_TEST_KILLS).
int killCount() {
    const char* asked = std::getenv("TARN_TEST_KILLS");
    return asked != nullptr ? std::atoi(asked) : 20;
}

/// The times of all pictures up to where the file was cut off, in the middle of a packet as may be.
Times playedTimes(const std::string& path) {
    Times times;
    test::ReadBack clip(path, AVMEDIA_TYPE_VIDEO);
    try {
        clip.decodeAll([&](const AVFrame& frame) {
            times.push_back(test::secondsOf(frame.best_effort_timestamp, clip.stream().time_base));
        });
    } catch (const std::runtime_error&) {
    }
    return times;
}

/// How many fragments of an MP4 file are there from their first byte to their last.
std::size_t wholeFragments(const std::string& bytes) {
    std::size_t count = 0;
    for (std::size_t at = 0; at + 8 <= bytes.size();) {
        std::size_t length = 0;
        for (std::size_t i = 0; i < 4; ++i)
            length = length << 8 | static_cast<uint8_t>(bytes[at + i]);
        if (length < 8 || at + length > bytes.size())
            break;
        count += bytes.compare(at + 4, 4, "mdat") == 0 ? 1 : 0;
        at += length;
    }
    return count;
}

class KillsTest : public ClipWriterTest, public ::testing::WithParamInterface<const char*> {
protected:
    static void killAfter(pid_t child, int milliseconds) {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "it had ended before";
    }
};

TEST_P(KillsTest, AKilledProcessLeavesWhatPlays) {
    std::mt19937 random(1);
    int there = 0;
    for (int run = 0; run < killCount(); ++run) {
        const std::string path = file(std::to_string(run) + GetParam());
        ClipWriterOptions options = inFragments();
        options.rate = 25;
        options.preset = "ultrafast";
        options.threads = 1;
        killAfter(startWriting(path, options), 60 + static_cast<int>(random() % 200));
        if (!std::filesystem::exists(path))
            continue;
        ++there;
        const Times times = playedTimes(path);
        EXPECT_GE(times.size(), 25U) << run;
        if (path.substr(path.size() - 4) == ".mp4") {
            EXPECT_GE(times.size(), 25 * wholeFragments(bytesOf(path))) << run;
        }
        for (std::size_t i = 0; i < times.size(); ++i)
            ASSERT_EQ(times[i], Fraction(static_cast<int64_t>(i), 25)) << run << " " << i;
    }
    EXPECT_GE(there, killCount() / 2);
}

TEST_P(KillsTest, WithoutFragmentsNothingStandsUnderTheName) {
    std::mt19937 random(2);
    for (int run = 0; run < killCount(); ++run) {
        const std::string path = file(std::to_string(run) + GetParam());
        ClipWriterOptions options;
        options.rate = 25;
        options.preset = "ultrafast";
        options.threads = 1;
        killAfter(startWriting(path, options), 20 + static_cast<int>(random() % 100));
        EXPECT_FALSE(std::filesystem::exists(path)) << run;
    }
}

INSTANTIATE_TEST_SUITE_P(Containers, KillsTest, ::testing::Values(".mp4", ".mkv"),
                         [](const auto& one) { return std::string(one.param).substr(1); });

} // namespace
} // namespace tio::ffmpeg
