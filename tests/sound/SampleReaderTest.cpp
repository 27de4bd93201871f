#include "SampleReaderFixture.h"
#include "ffmpeg_compat.h"
#include "support/ChildProcess.h"
#include "support/ClipMaker.h"
#include "support/Encoding.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/SoundMaker.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/SampleReader.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace tio::ffmpeg {
namespace {

using test::IsFraction;
using test::ramp;
using test::SampleReaderTest;
using test::SoundPlan;
using test::thrownText;
using testing::HasSubstr;

TEST_F(SampleReaderTest, TellsWhatTheSoundIs) {
    const SampleReader& sound = open({"mp4", "aac", "fltp", 48000, "5.1", 1, {}, {}, {}});
    EXPECT_EQ(sound.sampleRate(), 48000);
    EXPECT_EQ(sound.channelCount(), 6);
    EXPECT_EQ(sound.layout(), "5.1");
    EXPECT_EQ(sound.streamIndex(), 0);
    EXPECT_THAT(sound.startTime(), IsFraction(0, 1));
}

TEST_F(SampleReaderTest, GivesSampleNAtItsNumber) {
    SampleReader& sound = open(ramp());
    ASSERT_EQ(sound.sampleCount(), 16000);
    const auto samples = sound.readSamples(4321, 3);
    ASSERT_EQ(samples.rows(), 3);
    ASSERT_EQ(samples.cols(), 2);
    for (int row = 0; row < 3; ++row)
        for (int channel = 0; channel < 2; ++channel)
            EXPECT_EQ(samples(row, channel), static_cast<float>(4321 + row) / 32768);
}

TEST_F(SampleReaderTest, WritesIntoMemoryOfTheCallersAndNoFurther) {
    SampleReader& sound = open(ramp());
    std::vector<float> memory(10, -2);
    sound.readSamples(15996, 4, memory.data());
    EXPECT_EQ(memory[0], 15996.0F / 32768);
    EXPECT_EQ(memory[7], 15999.0F / 32768);
    EXPECT_EQ(memory[8], -2);
}

TEST_F(SampleReaderTest, MemoryThatIsNullIsRefused) {
    SampleReader& sound = open(ramp());
    EXPECT_THROW(sound.readSamples(0, 5, nullptr), tio::Exception);
    EXPECT_NO_THROW(sound.readSamples(0, 0, nullptr));
}

TEST_F(SampleReaderTest, GivesNoSamplesWhereNoneAreAskedFor) {
    SampleReader& sound = open(ramp());
    const auto samples = sound.readSamples(16000, 0);
    EXPECT_EQ(samples.rows(), 0);
    EXPECT_EQ(samples.cols(), 2);
}

struct Range {
    int64_t first;
    int64_t count;
};

class MissingSamples : public SampleReaderTest, public testing::WithParamInterface<Range> {};

TEST_P(MissingSamples, AreRefusedAndTheNextCallWorks) {
    SampleReader& sound = open(ramp());
    static_cast<void>(sound.readSamples(100, 10));
    const auto before = sound.counters().packetsDecoded;
    EXPECT_THAT(thrownText<tio::Exception>([&] {
                    static_cast<void>(sound.readSamples(GetParam().first, GetParam().count));
                }),
                testing::AllOf(HasSubstr("0 to 15999"), HasSubstr(clip)));
    EXPECT_EQ(sound.counters().packetsDecoded, before);
    EXPECT_EQ(sound.readSamples(110, 1)(0, 0), 110.0F / 32768);
}

INSTANTIATE_TEST_SUITE_P(Ranges, MissingSamples,
                         testing::Values(Range{-1, 1}, Range{0, -1}, Range{16000, 1},
                                         Range{15999, 2}, Range{INT64_MIN, 1}, Range{INT64_MAX, 1},
                                         Range{1, INT64_MAX}, Range{16001, 0}));

TEST_F(SampleReaderTest, FindsTimesAndSamplesByEachOther) {
    SampleReader& sound = open(ramp());
    EXPECT_THAT(sound.timeOfSample(4001), IsFraction(4001, 8000));
    EXPECT_EQ(sound.sampleAt({4001, 8000}), 4001);
    EXPECT_EQ(sound.sampleAt({80019, 160000}), 4000); // a little before 4001
    EXPECT_EQ(sound.sampleAt({0, 1}), 0);
    EXPECT_EQ(sound.sampleAt({31999, 16000}), 15999); // half of the last one is over
    EXPECT_THAT(sound.duration(), IsFraction(2, 1));
    EXPECT_THROW(static_cast<void>(sound.sampleAt({2, 1})), tio::Exception);
    EXPECT_THROW(static_cast<void>(sound.sampleAt({-1, 16000})), tio::Exception);
    EXPECT_THROW(static_cast<void>(sound.sampleAt({1, 0})), tio::Exception);
    EXPECT_THROW(static_cast<void>(sound.timeOfSample(16000)), tio::Exception);
}

// As a double that was made a fraction has it.
TEST_F(SampleReaderTest, TakesTimesOfVeryFineFractions) {
    SampleReader& sound = open(ramp());
    const int64_t fine = int64_t{1} << 52;
    EXPECT_EQ(sound.sampleAt({fine / 2 + 1, fine}), 4000);
    EXPECT_EQ(sound.sampleAt({fine / 2 - 1, fine}), 3999);
}

TEST_F(SampleReaderTest, WhatIsNoTimeIsRefused) {
    SampleReader& sound = open(ramp());
    Rational none;
    none.denominator = 0;
    for (const int64_t numerator : {0, 1, -1}) {
        none.numerator = numerator;
        EXPECT_THROW(static_cast<void>(sound.readSamplesBetween(none, 1)), tio::Exception);
        EXPECT_THROW(static_cast<void>(sound.readSamplesBetween(0, none)), tio::Exception);
        EXPECT_THROW(static_cast<void>(sound.sampleAt(none)), tio::Exception);
    }
}

// As of a decoder that makes times up.
TEST_F(SampleReaderTest, AFrameOfAPacketThatThereIsNotBelongsToTheOneBefore) {
    const int64_t count = open(ramp()).sampleCount();
    int frames = 0;
    const test::Interception intercepted;
    intercepted->avcodec_receive_frame.instead = [&](AVCodecContext* codec, AVFrame* frame) {
        const int received = test::real::receiveFrame(codec, frame);
        if (received >= 0 && ++frames % 2 == 0)
            frame->pts = UINT32_MAX - 1;
        return received;
    };
    EXPECT_EQ(SampleIndex::build(clip).sampleCount(), count);
    EXPECT_GT(frames, 2);
}

TEST_F(SampleReaderTest, ReadsBetweenTimesAsFarAsThereAreSamples) {
    SampleReader& sound = open(ramp());
    const auto inside = sound.readSamplesBetween({1, 2}, {1001, 2000});
    ASSERT_EQ(inside.rows(), 4);
    EXPECT_EQ(inside(0, 0), 4000.0F / 32768);
    const auto between = sound.readSamplesBetween({40001, 80000}, {40011, 80000});
    ASSERT_EQ(between.rows(), 1);
    EXPECT_EQ(between(0, 0), 4001.0F / 32768);
    EXPECT_EQ(sound.readSamplesBetween({-5, 1}, {1, 8000}).rows(), 1);
    EXPECT_EQ(sound.readSamplesBetween({3, 2}, {100, 1}).rows(), 4000);
    EXPECT_EQ(sound.readSamplesBetween({3, 1}, {100, 1}).rows(), 0);
    EXPECT_EQ(sound.readSamplesBetween({1, 1}, {1, 1}).rows(), 0);
    EXPECT_EQ(sound.readSamplesBetween({1, 1}, {1, 2}).rows(), 0);
}

TEST_F(SampleReaderTest, GoesOnWithoutASeek) {
    SampleReader& sound = open({"mp4", "aac", "fltp", 44100, "stereo", 4, {}, {}, {}});
    const auto before = sound.counters();
    for (int64_t first = 0; first + 1000 <= sound.sampleCount(); first += 1000)
        static_cast<void>(sound.readSamples(first, 1000));
    const auto after = sound.counters();
    EXPECT_EQ(after.seeks, before.seeks);
    EXPECT_EQ(after.sourceOpenings, before.sourceOpenings);
    EXPECT_LE(after.packetsDecoded, sound.sampleCount() / 1024 + 2);
}

TEST_F(SampleReaderTest, StartsNearWhatIsAskedFor) {
    SampleReader& sound =
        open({"mp4", "flac", "s16", 44100, "stereo", 20, {}, {}, {{"strict", "-2"}}});
    const auto before = sound.counters().packetsDecoded;
    static_cast<void>(sound.readSamples(sound.sampleCount() - 1000, 1000));
    EXPECT_LE(sound.counters().packetsDecoded - before, 60);
}

// A click is found by its number and by its time, whatever the encoder and the container put
// before it.
struct ClickPlan {
    const char* name;
    SoundPlan plan;
    double tick = 0;     ///< of the container's times, in seconds; 0 where it counts in samples
    int64_t priming = 0; ///< samples that the container may not state
    double start = 0;    ///< of a container whose times begin before the stated priming is off
};

class Click : public SampleReaderTest, public testing::WithParamInterface<ClickPlan> {};

TEST_P(Click, IsFoundAtItsSampleAndItsTime) {
    constexpr int64_t at = 30000;
    SoundPlan plan = GetParam().plan;
    plan.expression = "0.8*eq(n\\," + std::to_string(at) + ")";
    if (!test::canMake(plan))
        GTEST_SKIP();
    SampleReader& sound = open(plan);
    const auto samples = sound.readSamples(0, sound.sampleCount());
    int loudest = 0;
    for (int row = 0; row < samples.rows(); ++row)
        if (std::fabs(samples(row, 0)) > std::fabs(samples(loudest, 0)))
            loudest = row;
    // Matroska's times of AAC begin at 0 with the priming up to FFmpeg 5.1, before 0 with 7.1, and
    // with 9.0 the priming is taken off.
    const test::OracleSound decoded = test::oracleSound(clip);
    const auto peak = std::max_element(decoded.samples.begin(), decoded.samples.end());
    const bool unstated = GetParam().priming > 0 && peak - decoded.samples.begin() != at;
    EXPECT_EQ(loudest, unstated ? at + GetParam().priming : at);
    const double rate = plan.rate;
    double start = GetParam().priming > 0 ? 0 : GetParam().start;
    if (unstated)
        start = decoded.start + static_cast<double>(GetParam().priming) / rate;
    const Rational time = sound.timeOfSample(loudest);
    EXPECT_NEAR(time.toDouble(), at / rate + start, GetParam().tick + 1e-6);
    EXPECT_EQ(sound.sampleAt(time), loudest);
    const auto alone = sound.readSamplesBetween(time, sound.timeOfSample(loudest + 1));
    ASSERT_EQ(alone.rows(), 1);
    EXPECT_EQ(alone(0, 0), samples(loudest, 0));
}

// Matroska has no word for the priming of AAC, so that FFmpeg takes none off, and its muxer begins
// at 0. The times of an MP3 file begin with the priming: 576 samples of the encoder, 529 of the
// decoder.
INSTANTIATE_TEST_SUITE_P(
    Containers, Click,
    testing::Values(
        ClickPlan{"AacMp4", {"mp4", "aac", "fltp", 44100, "mono", 2, {}, {}, {}}},
        ClickPlan{"AacMkv", {"matroska", "aac", "fltp", 44100, "mono", 2, {}, {}, {}}, 0.001, 1024},
        ClickPlan{"Mp3",
                  {"mp3", "libmp3lame", "fltp", 44100, "mono", 2, {}, {}, {}},
                  0,
                  0,
                  (576 + 529) / 44100.0},
        ClickPlan{"OpusOgg", {"ogg", "libopus", "flt", 48000, "mono", 2, {}, {}, {}}},
        ClickPlan{"OpusWebm", {"webm", "libopus", "flt", 48000, "mono", 2, {}, {}, {}}, 0.001},
        ClickPlan{"VorbisOgg", {"ogg", "libvorbis", "fltp", 44100, "mono", 2, {}, {}, {}}},
        ClickPlan{"FlacMkv", {"matroska", "flac", "s16", 44100, "mono", 2, {}, {}, {}}, 0.001},
        ClickPlan{"AlacMp4", {"ipod", "alac", "s16p", 44100, "mono", 2, {}, {}, {}}},
        ClickPlan{"PcmWav", {"wav", "pcm_s16le", "s16", 44100, "mono", 2, {}, {}, {}}}),
    [](const auto& click) { return std::string(click.param.name); });

TEST_F(SampleReaderTest, NamesTheSampleAtWhichTheRateChanges) {
    const std::string first = folder.file("first");
    test::makeSound(first, {"mp3",
                            "libmp3lame",
                            "fltp",
                            44100,
                            "stereo",
                            1,
                            {},
                            {},
                            {{"write_xing", "0"}, {"id3v2_version", "0"}}});
    const std::string second = folder.file("second");
    test::makeSound(second, {"mp3",
                             "libmp3lame",
                             "fltp",
                             32000,
                             "stereo",
                             1,
                             {},
                             {},
                             {{"write_xing", "0"}, {"id3v2_version", "0"}}});
    std::ofstream both(clip, std::ios::binary);
    both << std::ifstream(first, std::ios::binary).rdbuf()
         << std::ifstream(second, std::ios::binary).rdbuf();
    both.close();
    const test::OracleSound expected = test::oracleSound(clip);
    ASSERT_GT(expected.changesAt, 0);

    SampleReader& sound = openAgain();
    EXPECT_EQ(sound.sampleRate(), expected.rate);
    EXPECT_GT(sound.sampleCount(), expected.changesAt);
    const auto before = sound.readSamples(expected.changesAt - 100, 100);
    EXPECT_EQ(before(99, 1), expected.samples.back());
    EXPECT_THAT(thrownText<tio::Exception>(
                    [&] { static_cast<void>(sound.readSamples(expected.changesAt - 100, 101)); }),
                testing::AllOf(
                    HasSubstr("changes from " + std::to_string(expected.rate) + " Hz stereo to "),
                    HasSubstr("sample " + std::to_string(expected.changesAt)), HasSubstr(clip)));
    EXPECT_THROW(static_cast<void>(sound.timeOfSample(expected.changesAt)), tio::Exception);
}

TEST_F(SampleReaderTest, TellsOfAGapAndFillsItWithNothing) {
    test::Track tone = test::encodeTone(1, true);
    constexpr int64_t shift = 4800; // a tenth of a second
    const size_t from = tone.packets.size() / 2;
    for (size_t packet = from; packet < tone.packets.size(); ++packet) {
        tone.packets[packet].pts += shift;
        tone.packets[packet].dts += shift;
    }
    test::writePackets(clip, "matroska", {tone});
    SampleReader& sound = openAgain();
    const auto breaks = sound.index().timeBreaks();
    ASSERT_EQ(breaks.size(), 1U);
    EXPECT_NEAR((breaks[0].told - breaks[0].expected).toDouble(), 0.1, 0.0021);
    const int64_t sample = breaks[0].sample;
    EXPECT_EQ(sound.timeOfSample(sample), breaks[0].told);
    EXPECT_EQ(sound.sampleAt(breaks[0].told - Rational(1, 100)), sample - 1);
    EXPECT_EQ(sound.readSamplesBetween(breaks[0].expected, breaks[0].told).rows(), 0);
    EXPECT_EQ(sound.sampleCount(), test::oracleSound(clip).count());
}

class WrongStream : public SampleReaderTest, public testing::WithParamInterface<int> {};

TEST_P(WrongStream, IsRefused) {
    test::ClipPlan plan;
    plan.audio = true; // stream 0 is the video
    test::makeClip(clip, plan);
    SampleReaderOptions options;
    options.stream = GetParam();
    EXPECT_THAT(thrownText<tio::Exception>([&] { openAgain(options); }), HasSubstr(clip));
}

INSTANTIATE_TEST_SUITE_P(Streams, WrongStream, testing::Values(-2, 0, 2, INT32_MAX));

TEST_F(SampleReaderTest, RefusesAClipWithoutSound) {
    test::makeClip(clip, {});
    EXPECT_THAT(thrownText<Exception>([&] { openAgain(); }),
                HasSubstr("Could not find stream of requested type"));
}

TEST_F(SampleReaderTest, WorksOnInParentAndChild) {
    const SoundPlan plan{"mp4", "aac", "fltp", 44100, "mono", 3, {}, {{"aac_pns", "0"}}, {}};
    SampleReader& sound = open(plan);
    const test::OracleSound expected = test::oracleSound(clip);
    const auto agree = [&](int64_t first) {
        const auto samples = sound.readSamples(first, 3000);
        return std::equal(samples.data(), samples.data() + 3000, expected.samples.data() + first);
    };
    ASSERT_TRUE(agree(50000)); // and has packets under way
    const std::string told = test::toldByChild(
        [&] { return std::string(agree(53000) && agree(1000) ? "right" : "wrong"); });
    EXPECT_EQ(told, "right");
    EXPECT_TRUE(agree(53000));
    EXPECT_TRUE(agree(90000));
}

// Damage in mid-stream: the reader counts what a decoding from start to end gives.
TEST_F(SampleReaderTest, CountsWhatComesOutOfADamagedStream) {
    test::makeSound(clip, {"mp3", "libmp3lame", "fltp", 44100, "stereo", 2, {}, {}, {}});
    std::fstream file(clip, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(std::filesystem::file_size(clip) / 2));
    file << std::string(1500, '\x55');
    file.close();
    const test::OracleSound expected = test::oracleSound(clip);
    SampleReader& sound = openAgain();
    ASSERT_EQ(sound.sampleCount(), expected.count());
    const int64_t first = expected.count() - 5000;
    const auto samples = sound.readSamples(first, 5000);
    EXPECT_TRUE(std::equal(samples.data(), samples.data() + samples.count,
                           expected.samples.data() + first * 2));
}

TEST_F(SampleReaderTest, MovesAndTheNewOneReadsOn) {
    open(ramp());
    SampleReader moved = std::move(*reader);
    EXPECT_EQ(moved.readSamples(77, 1)(0, 0), 77.0F / 32768);
}

} // namespace
} // namespace tio::ffmpeg
