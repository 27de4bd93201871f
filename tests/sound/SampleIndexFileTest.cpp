#include "SampleReaderFixture.h"
#include "exact/sound/SoundIndexBuilder.h"
#include "exact/sound/index/SoundIndexFile.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/LogCapture.h"
#include "support/ScriptedStream.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/IndexMismatch.h>
#include <TARN/videoio/SampleReader.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

namespace fs = std::filesystem;

using test::ramp;
using test::SoundPlan;
using test::thrownText;
using testing::HasSubstr;
using Bytes = std::vector<uint8_t>;
using Match = SampleIndex::Match;

class SampleIndexFileTest : public test::SampleReaderTest {
protected:
    SampleIndex build(const SoundPlan& plan, bool checksums = false) {
        test::makeSound(clip, plan);
        SampleIndexOptions options;
        options.checksums = checksums;
        return SampleIndex::build(clip, options);
    }

    /// The file's index against the one that is made of the clip.
    void expectKept(const SampleIndex& kept, bool checksums = false) const {
        SampleIndexOptions options;
        options.checksums = checksums;
        const auto read = detail::soundIndexOfBytes(kept.toBytes().data(), kept.toBytes().size());
        ASSERT_TRUE(read.has_value());
        expectSame(detail::buildSoundIndex(clip, options), *read);
    }

    static void expectSame(const detail::SoundIndexData& left,
                           const detail::SoundIndexData& right) {
        EXPECT_EQ(left.packets.pts, right.packets.pts);
        EXPECT_EQ(left.packets.keyDts, right.packets.keyDts);
        EXPECT_EQ(left.packets.positions, right.packets.positions);
        EXPECT_EQ(left.packets.hashes, right.packets.hashes);
        EXPECT_EQ(left.packets.flags, right.packets.flags);
        EXPECT_EQ(left.packets.keys, right.packets.keys);
        EXPECT_EQ(left.packets.stream, right.packets.stream);
        EXPECT_EQ(left.packets.codec, right.packets.codec);
        EXPECT_EQ(left.packets.source.samples, right.packets.source.samples);
        EXPECT_EQ(left.packets.source.size, right.packets.source.size);
        EXPECT_EQ(left.ends, right.ends);
        EXPECT_EQ(left.checksums, right.checksums);
        EXPECT_EQ(left.reservoirBytes, right.reservoirBytes);
        EXPECT_EQ(left.decoded, right.decoded);
        EXPECT_EQ(left.isSteady, right.isSteady);
        EXPECT_EQ(left.runIn, right.runIn);
        EXPECT_EQ(left.format.rate, right.format.rate);
        EXPECT_EQ(left.format.channels, right.format.channels);
        EXPECT_EQ(left.format.mask, right.format.mask);
        EXPECT_EQ(left.format.layout, right.format.layout);
        ASSERT_EQ(left.cuts.size(), right.cuts.size());
        for (const auto& [packet, cut] : left.cuts) {
            const auto& other = right.cuts.at(packet);
            EXPECT_EQ(cut.raw, other.raw);
            ASSERT_EQ(cut.parts.size(), other.parts.size());
            for (size_t part = 0; part < cut.parts.size(); ++part) {
                EXPECT_EQ(cut.parts[part].from, other.parts[part].from);
                EXPECT_EQ(cut.parts[part].end, other.parts[part].end);
            }
        }
        ASSERT_EQ(left.times.size(), right.times.size());
        for (size_t run = 0; run < left.times.size(); ++run) {
            EXPECT_EQ(left.times[run].firstSample, right.times[run].firstSample);
            EXPECT_EQ(left.times[run].start, right.times[run].start);
        }
        ASSERT_EQ(left.change.has_value(), right.change.has_value());
        if (left.change) {
            EXPECT_EQ(left.change->sample, right.change->sample);
            EXPECT_EQ(left.change->format.layout, right.change->format.layout);
            EXPECT_EQ(left.change->format.rate, right.change->format.rate);
        }
    }

    test::LogCapture log;
    std::string file = folder.file("index");
};

// --- What is kept ---

class KeptIndex : public SampleIndexFileTest, public testing::WithParamInterface<SoundPlan> {};

TEST_P(KeptIndex, ComesBackAsItWas) {
    for (const bool checksums : {false, true}) {
        const SampleIndex index = build(GetParam(), checksums);
        index.save(file);
        const SampleIndex loaded = SampleIndex::load(file);
        expectKept(loaded, checksums);
        expectKept(SampleIndex::fromBytes(index.toBytes()), checksums);
        EXPECT_EQ(index.toBytes(), test::readBytes(file));
        EXPECT_EQ(loaded.hasChecksums(), index.hasChecksums());
        EXPECT_EQ(loaded.match(clip), Match::Fresh);
    }
}

TEST_P(KeptIndex, LeadsToTheSameSamples) {
    build(GetParam()).save(file);
    const test::OracleSound expected = test::oracleSound(clip);
    SampleReaderOptions options;
    options.index = SampleIndex::load(file);
    SampleReader& sound = openAgain(options);
    ASSERT_EQ(sound.sampleCount(), expected.count());
    EXPECT_EQ(sound.counters().sourceOpenings, 1);
    for (const int64_t first : {expected.count() / 2, int64_t{0}, expected.count() - 1000}) {
        const auto samples = sound.readSamples(first, 1000);
        EXPECT_TRUE(std::equal(samples.data(), samples.data() + samples.count,
                               expected.samples.data() + first * expected.channels))
            << first;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, KeptIndex,
    testing::Values(
        SoundPlan{"mp4", "aac", "fltp", 44100, "stereo", 25, {}, {{"aac_pns", "0"}}, {}},
        SoundPlan{"mp3", "libmp3lame", "fltp", 44100, "stereo", 28, {}, {}, {}},
        SoundPlan{"ogg", "libvorbis", "fltp", 44100, "stereo", 2, {}, {}, {}},
        SoundPlan{"wav", "pcm_s16le", "s16", 8000, "mono", 2, {}, {}, {}}));

TEST_F(SampleIndexFileTest, KeepsAChangeInMidStream) {
    test::makeSound(clip, {"mp3", "libmp3lame", "fltp", 44100, "stereo", 2, {}, {}, {}});
    const Bytes stereo = test::readBytes(clip);
    test::makeSound(clip, {"mp3", "libmp3lame", "fltp", 44100, "mono", 2, {}, {}, {}});
    Bytes both = stereo;
    const Bytes mono = test::readBytes(clip);
    both.insert(both.end(), mono.begin(), mono.end());
    test::writeBytes(clip, both);
    const SampleIndex index = SampleIndex::build(clip);
    ASSERT_TRUE(detail::buildSoundIndex(clip, {}).change.has_value());
    expectKept(SampleIndex::fromBytes(index.toBytes()));
}

// --- Which clip it is of ---

TEST_F(SampleIndexFileTest, IsFreshForTheSameBytesFromAnywhere) {
    const SampleIndex index = build(ramp());
    const std::string copy = folder.file("elsewhere.bin");
    fs::copy_file(clip, copy);
    EXPECT_EQ(index.match(copy), Match::Fresh);
    const Bytes bytes = test::readBytes(clip);
    EXPECT_EQ(index.match(Source::memory(bytes)), Match::Fresh);
    EXPECT_EQ(SampleIndex::build(Source::memory(bytes)).toBytes(), index.toBytes());
    SampleReaderOptions options;
    options.index = index;
    EXPECT_EQ(SampleReader(Source::memory(bytes), options).sampleCount(), index.sampleCount());
}

TEST_F(SampleIndexFileTest, IsStaleForAChangedClipAndForeignForAnother) {
    const SampleIndex index = build(ramp());
    Bytes bytes = test::readBytes(clip);
    SampleReaderOptions options;
    options.index = index;

    bytes[bytes.size() / 2] ^= 1;
    test::writeBytes(clip, bytes);
    EXPECT_EQ(index.match(clip), Match::Stale);
    EXPECT_THAT(thrownText<IndexMismatch>([&] { openAgain(options); }),
                HasSubstr("\"" + clip + "\", which has changed since"));

    test::makeSound(clip, {"mp4", "aac", "fltp", 44100, "stereo", 1, {}, {}, {}});
    EXPECT_EQ(index.match(clip), Match::Foreign);
    EXPECT_THROW(openAgain(options), IndexMismatch);
}

TEST_F(SampleIndexFileTest, OfAnUnknownClipIsNotStoredButTravels) {
    test::makeSound(clip, ramp());
    test::ScriptedStream::Script script;
    script.bytes = test::readBytes(clip);
    script.size = [](int64_t) { return ByteStream::unknownSize; };
    const Source unsized = test::scriptedSource(script);
    const SampleIndex index = SampleIndex::build(unsized);
    EXPECT_THAT(thrownText<tio::Exception>([&] { index.save(file); }), HasSubstr(file));
    EXPECT_FALSE(fs::exists(file));
    SampleReaderOptions options;
    options.index = SampleIndex::fromBytes(index.toBytes());
    SampleReader sound(unsized, options);
    EXPECT_EQ(sound.readSamples(100, 1)(0, 0), 100.0F / 32768);
    EXPECT_EQ(index.match(clip), Match::Foreign);
}

// --- Damage ---

TEST_F(SampleIndexFileTest, DamageIsFoundWhereverItIs) {
    const Bytes whole =
        build({"mp3", "libmp3lame", "fltp", 44100, "mono", 1, {}, {}, {}}).toBytes();
    for (size_t at = 0; at < whole.size(); ++at) {
        Bytes damaged = whole;
        damaged[at] ^= 0x10;
        EXPECT_THROW(static_cast<void>(SampleIndex::fromBytes(damaged)), tio::Exception) << at;
    }
    for (size_t size = 0; size < whole.size(); ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_THROW(static_cast<void>(SampleIndex::fromBytes(cut)), tio::Exception) << size;
    }
    Bytes longer = whole;
    longer.push_back(0);
    EXPECT_THROW(static_cast<void>(SampleIndex::fromBytes(longer)), tio::Exception);
}

TEST_F(SampleIndexFileTest, EndsThatNoPacketsHaveAreRefused) {
    for (const std::vector<int64_t>& ends :
         {std::vector<int64_t>{5, INT64_MIN}, {INT64_MIN, INT64_MAX}, {0, INT64_MAX}, {5, 4}}) {
        detail::SoundIndexData index;
        index.packets.stream = 0;
        index.packets.timeBase = {1, 1000};
        index.format = {1000, 1, 0, "mono"};
        index.times = {{0, Rational(0)}};
        for (auto* column : {&index.packets.pts, &index.packets.keyDts, &index.packets.positions})
            column->resize(ends.size());
        index.packets.hashes.resize(ends.size());
        index.packets.flags.resize(ends.size());
        index.ends = {5, 9};
        Bytes bytes = detail::bytesOfSoundIndex(index);
        EXPECT_TRUE(detail::soundIndexOfBytes(bytes.data(), bytes.size()).has_value());
        index.ends = ends;
        bytes = detail::bytesOfSoundIndex(index);
        EXPECT_FALSE(detail::soundIndexOfBytes(bytes.data(), bytes.size()).has_value()) << ends[1];
    }
}

TEST_F(SampleIndexFileTest, ADamagedFileIsToldByItsName) {
    build(ramp()).save(file);
    Bytes bytes = test::readBytes(file);
    bytes[bytes.size() / 2] ^= 1;
    test::writeBytes(file, bytes);
    EXPECT_THAT(thrownText<tio::Exception>([&] { static_cast<void>(SampleIndex::load(file)); }),
                HasSubstr("\"" + file + "\" is no index of sound, or a damaged one"));
    EXPECT_THAT(thrownText<tio::Exception>(
                    [&] { static_cast<void>(SampleIndex::load(folder.file("none"))); }),
                HasSubstr(folder.file("none")));
}

TEST_F(SampleIndexFileTest, AnIndexOfFramesIsNone) {
    test::makeClip(clip, {});
    const FrameIndex frames = FrameIndex::build(clip);
    frames.save(file);
    EXPECT_THROW(static_cast<void>(SampleIndex::load(file)), tio::Exception);
    EXPECT_THROW(static_cast<void>(SampleIndex::fromBytes(frames.toBytes())), tio::Exception);
    EXPECT_EQ(FrameIndex::load(file).frameCount(), 25);
    build(ramp()).save(file);
    EXPECT_THAT(thrownText<tio::Exception>([&] { static_cast<void>(FrameIndex::load(file)); }),
                HasSubstr("\"" + file + "\" is no index of frames"));
}

} // namespace
} // namespace tio::ffmpeg
