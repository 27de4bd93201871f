#include "SampleReaderFixture.h"
#include "support/ByteEdits.h"
#include "support/Expectations.h"
#include "support/ScriptedStream.h"
#include "support/SoundMaker.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/SampleReader.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace tio::ffmpeg {
namespace {

using test::ramp;
using test::SampleReaderTest;
using test::SoundPlan;
using test::thrownText;
using testing::HasSubstr;

TEST_F(SampleReaderTest, UsesAnIndexThatWasMadeBefore) {
    const SampleIndex index = open(ramp()).index();
    SampleReaderOptions options;
    options.index = index;
    SampleReader& again = openAgain(options);
    EXPECT_EQ(again.counters().sourceOpenings, 1);
    EXPECT_EQ(again.readSamples(5000, 1)(0, 0), 5000.0F / 32768);
}

class PacketsThatTell : public SampleReaderTest, public testing::WithParamInterface<SoundPlan> {};

TEST_P(PacketsThatTell, AreCountedWithoutDecodingThemAllAndLeadToTheSameSamples) {
    SampleReader& sound = open(GetParam());
    const test::OracleSound expected = test::oracleSound(clip);
    EXPECT_FALSE(sound.index().hasChecksums());
    EXPECT_EQ(sound.layout(), GetParam().layout);
    ASSERT_EQ(sound.sampleCount(), expected.count());
    std::mt19937 numbers(3);
    for (int range = 0; range < 60; ++range) {
        const auto first =
            static_cast<int64_t>(numbers() % static_cast<uint64_t>(expected.count() - 2000));
        const auto samples = sound.readSamples(first, 2000);
        ASSERT_TRUE(std::equal(samples.data(), samples.data() + samples.count,
                               expected.samples.data() + first * expected.channels))
            << "2000 samples from " << first << " on";
    }
}

TEST_F(SampleReaderTest, DecodesThePacketsAllTheSameWhereChecksumsAreAskedFor) {
    test::makeSound(clip, {"wav", "pcm_s16le", "s16", 48000, "stereo", 100, {}, {}, {}});
    EXPECT_FALSE(openAgain().index().hasChecksums());
    SampleReaderOptions options;
    options.checksums = true;
    EXPECT_TRUE(openAgain(options).index().hasChecksums());
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, PacketsThatTell,
    testing::Values(
        SoundPlan{"mp4", "aac", "fltp", 44100, "stereo", 25, {}, {{"aac_pns", "0"}}, {}},
        SoundPlan{"adts", "aac", "fltp", 44100, "mono", 25, {}, {{"aac_pns", "0"}}, {}},
        SoundPlan{"mp3", "libmp3lame", "fltp", 44100, "stereo", 28, {}, {}, {}},
        SoundPlan{"mp3", "libmp3lame", "fltp", 22050, "mono", 28, {}, {{"b", "24k"}}, {}},
        SoundPlan{"flac", "flac", "s16", 44100, "mono", 30, {}, {{"compression_level", "0"}}, {}},
        SoundPlan{"ipod", "alac", "s16p", 44100, "stereo", 100, {}, {}, {}},
        SoundPlan{"matroska", "alac", "s32p", 44100, "mono", 100, {}, {}, {}},
        SoundPlan{"wav", "pcm_s24le", "s32", 48000, "stereo", 100, {}, {}, {}}));

TEST_F(SampleReaderTest, RefusesAnIndexOfAnotherStream) {
    SampleReaderOptions options;
    options.index = open(ramp()).index();
    EXPECT_THAT(thrownText<IndexMismatch>([&] {
                    open({"mp4", "aac", "fltp", 44100, "stereo", 1, {}, {}, {}}, options);
                }),
                HasSubstr("The index is not that of \"" + clip + "\""));
    options.stream = 1;
    EXPECT_THROW(open(ramp(), options), IndexMismatch);
}

// Of a stream without a size nothing is known that would tell at once.
TEST_F(SampleReaderTest, NoticesThatTheFileIsAnotherOne) {
    test::makeSound(clip, ramp());
    test::ScriptedStream::Script script;
    script.bytes = test::readBytes(clip);
    script.size = [](int64_t) { return ByteStream::unknownSize; };
    SampleReaderOptions options;
    options.index = SampleIndex::build(test::scriptedSource(script));
    SoundPlan other = ramp();
    other.expression = "-n/32768";
    test::makeSound(clip, other);
    SampleReader& sound = openAgain(options);
    EXPECT_THAT(thrownText<tio::Exception>([&] { static_cast<void>(sound.readSamples(8000, 10)); }),
                HasSubstr("\"" + clip + "\" cannot be read: the source is not as it was"));
}

TEST_F(SampleReaderTest, CanBeCancelledWhileItCounts) {
    test::makeSound(clip, ramp());
    SampleReaderOptions options;
    options.progress = [](const IndexProgress&) { return false; };
    EXPECT_THROW(openAgain(options), IndexingCancelled);
}

TEST_F(SampleReaderTest, TellsHowFarItIs) {
    test::makeSound(clip, {"ogg", "libvorbis", "fltp", 44100, "stereo", 2, {}, {}, {}});
    bool counted = false;
    SampleReaderOptions options;
    options.progress = [&](const IndexProgress& progress) {
        counted = counted || progress.step == IndexProgress::Step::Samples;
        return true;
    };
    openAgain(options);
    EXPECT_TRUE(counted);
}

} // namespace
} // namespace tio::ffmpeg
