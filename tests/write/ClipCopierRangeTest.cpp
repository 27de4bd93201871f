#include "ClipCopierFixture.h"
#include "support/Expectations.h"
#include "support/WrittenFile.h"

#include <TARN/videoio/ClipCopier.h>
#include <TARN/videoio/Exception.h>

#include <cerrno>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipCopierTest;
using test::ClipPlan;
using test::Fraction;
using test::Seen;
using test::seenIn;
using ::testing::HasSubstr;

// Parts of clips, refusals and failures.

// Key pictures at 0, 12/25, 24/25, …
ClipPlan longClip(const std::string& format = "mp4") {
    ClipPlan plan;
    plan.format = format;
    plan.frameCount = 100;
    plan.audio = true;
    return plan;
}

Seen part(const Seen& whole, std::size_t first, std::size_t end) {
    const auto cut = [&](const auto& all) {
        return std::decay_t<decltype(all)>(all.begin() + static_cast<std::ptrdiff_t>(first),
                                           all.begin() + static_cast<std::ptrdiff_t>(end));
    };
    return {cut(whole.times), cut(whole.hashes)};
}

ClipCopierOptions range(std::optional<Fraction> from, std::optional<Fraction> to,
                        ClipOrigin origin = ClipOrigin::AsGiven) {
    ClipCopierOptions options;
    options.from = from;
    options.to = to;
    options.origin = origin;
    return options;
}

class CopierRangeTest : public ClipCopierTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(CopierRangeTest, BeginsAtItsKeyPictureWithTheTimesOfTheSource) {
    make("source", longClip(GetParam()));
    const Seen whole = seenIn(file("source"));
    ASSERT_EQ(whole.times.size(), 100U);
    for (const char* name : {"copy.mp4", "copy.mkv"}) {
        copy("source", name, range(whole.times[48], std::nullopt));
        const Seen copied = seenIn(file(name));
        EXPECT_EQ(copied.hashes, part(whole, 48, 100).hashes) << name;
        EXPECT_EQ(copied.times, part(whole, 48, 100).times) << name;
    }
}

TEST_P(CopierRangeTest, EverythingBeforeItsEndIsThere) {
    make("source", longClip(GetParam()));
    const Seen whole = seenIn(file("source"));
    copy("source", "copy.mp4", range(whole.times[24], whole.times[60]));
    const Seen copied = seenIn(file("copy.mp4"));
    ASSERT_GE(copied.hashes.size(), 36U);
    ASSERT_LE(copied.hashes.size(), 38U); // one that B-pictures need, shown after the end
    EXPECT_EQ(part(copied, 0, 36).hashes, part(whole, 24, 60).hashes);
    const test::FileContents contents = test::readFile(file("copy.mp4"));
    const int sound = contents.find(AVMEDIA_TYPE_AUDIO);
    const AVRational base = contents.streams[static_cast<std::size_t>(sound)].timeBase;
    for (const test::FilePacket& packet : contents.of(sound)) {
        EXPECT_GE(test::secondsOf(packet.pts, base), whole.times[24] - Fraction(1, 48000));
        EXPECT_LT(test::secondsOf(packet.pts, base), whole.times[60]);
    }
}

TEST_P(CopierRangeTest, ABeginningThatIsNoKeyPictureIsRefusedWithTheNearest) {
    make("source", longClip(GetParam()));
    const Seen whole = seenIn(file("source"));
    try {
        copy("source", "copy.mp4", range(whole.times[50], std::nullopt));
        FAIL() << "it was copied";
    } catch (const TimeRefusal& refusal) {
        EXPECT_EQ(refusal.nearest(), whole.times[48]);
        EXPECT_THAT(refusal.what(), HasSubstr("source"));
    }
    EXPECT_EQ(filesLeft(), 1);
    try {
        copy("source", "copy.mp4", range(whole.times[58], std::nullopt));
        FAIL() << "it was copied";
    } catch (const TimeRefusal& refusal) {
        EXPECT_EQ(refusal.nearest(), whole.times[60]);
    }
}

INSTANTIATE_TEST_SUITE_P(Containers, CopierRangeTest,
                         ::testing::Values("mp4", "matroska", "mpegts"));

TEST_F(ClipCopierTest, APartMayCountFromItsFirstPicture) {
    make("source.mp4", longClip());
    const Seen whole = seenIn(file("source.mp4"));
    copy("source.mp4", "copy.mp4", range(whole.times[48], std::nullopt, ClipOrigin::First));
    const Seen copied = seenIn(file("copy.mp4"));
    ASSERT_EQ(copied.times.size(), 52U);
    for (std::size_t i = 0; i < copied.times.size(); ++i)
        EXPECT_EQ(copied.times[i], Fraction(static_cast<int64_t>(i), 25));
}

TEST_F(ClipCopierTest, PicturesThatLeanOnWhatWasCutAwayAreLeftOut) {
    ClipPlan plan = longClip();
    plan.openGop = true;
    plan.audio = false;
    make("source.mp4", plan);
    const Seen whole = seenIn(file("source.mp4"));
    const test::FileContents contents = test::readFile(file("source.mp4"));
    std::optional<Fraction> key;
    bool leads = false; // pictures that are decoded after a key picture and shown before it
    for (const test::FilePacket& packet : contents.packets) {
        const Fraction time = test::secondsOf(packet.pts, contents.streams[0].timeBase);
        if (packet.key && time > 0 && !key)
            key = time;
        leads = leads || (key && time < *key);
    }
    ASSERT_TRUE(key);
    ASSERT_TRUE(leads);
    copy("source.mp4", "copy.mp4", range(key, std::nullopt));
    const auto first = static_cast<std::size_t>((*key * Fraction(25)).toInteger());
    EXPECT_EQ(seenIn(file("copy.mp4")).hashes, part(whole, first, 100).hashes);
    EXPECT_EQ(seenIn(file("copy.mp4")).times, part(whole, first, 100).times);
}

TEST_F(ClipCopierTest, AnEndFarAfterTheClipLeavesNothingOut) {
    make("source.mp4", longClip());
    const int64_t all = copy("source.mp4", "whole.mp4").packets;
    for (const Fraction& end : {Fraction(1000), Fraction(INT64_MAX), Fraction(INT64_MAX, 1 << 30)})
        EXPECT_EQ(copy("source.mp4", "copy.mp4", range(std::nullopt, end)).packets, all);
}

TEST_F(ClipCopierTest, ARangeWithoutSenseIsRefused) {
    make("source.mp4", longClip());
    EXPECT_THROW(copy("source.mp4", "copy.mp4", range(Fraction(2), Fraction(1))), ClipRefusal);
    EXPECT_THROW(copy("source.mp4", "copy.mp4", range(Fraction(1, 0), std::nullopt)), ClipRefusal);
    EXPECT_THROW(copy("source.mp4", "copy.mp4", range(Fraction(100), std::nullopt)), ClipRefusal);
    EXPECT_THROW(copy("source.mp4", "copy.mp4", range(std::nullopt, Fraction(-1))), ClipRefusal);
    EXPECT_EQ(filesLeft(), 1);
}

TEST_F(ClipCopierTest, TheSourceIsNeverItsOwnCopy) {
    make("source.mp4", longClip());
    std::filesystem::create_symlink(file("source.mp4"), file("link.mp4"));
    const Seen before = seenIn(file("source.mp4"));
    EXPECT_THROW(copy("source.mp4", "source.mp4"), ClipRefusal);
    EXPECT_THROW(copy("source.mp4", "link.mp4"), ClipRefusal);
    EXPECT_THROW(copy("link.mp4", "source.mp4"), ClipRefusal);
    EXPECT_THROW(ClipCopier("file:" + file("source.mp4"), file("source.mp4")), ClipRefusal);
    EXPECT_EQ(seenIn(file("source.mp4")).hashes, before.hashes);
}

TEST_F(ClipCopierTest, WhatFailsLeavesTheFileThatWasThere) {
    make("source.mp4", longClip());
    make("copy.mp4", ClipPlan{});
    const Seen before = seenIn(file("copy.mp4"));
    int calls = 0;
    const auto cancel = [&](const CopyProgress& progress) {
        EXPECT_GE(progress.total, progress.bytes);
        return ++calls < 3;
    };
    EXPECT_THROW(ClipCopier(file("source.mp4"), file("copy.mp4")).run(cancel), CopyingCancelled);
    EXPECT_EQ(calls, 3);
    EXPECT_THROW(
        ClipCopier(file("source.mp4"), file("copy.mp4")).run([](const CopyProgress&) -> bool {
            throw std::runtime_error("mine");
        }),
        std::runtime_error);
    ClipCopierOptions keep;
    keep.overwrite = false;
    EXPECT_THROW(copy("source.mp4", "copy.mp4", keep), Exception);
    keep.streams = {7};
    EXPECT_THROW(copy("source.mp4", "copy.mp4", keep), ClipRefusal);
    EXPECT_EQ(filesLeft(), 2);
    EXPECT_EQ(seenIn(file("copy.mp4")).hashes, before.hashes);
    EXPECT_THROW(copy("source.mp4", "no/folder.mp4"), Exception);
    EXPECT_THROW(copy("none.mp4", "new.mp4"), Exception);
    EXPECT_THROW(copy("source.mp4", "new.txt"), ClipRefusal);
}

TEST_F(ClipCopierTest, ACopierRunsOnce) {
    make("source.mp4", longClip());
    ClipCopier copier(file("source.mp4"), file("copy.mp4"));
    copier.run();
    EXPECT_THROW(copier.run(), ClipRefusal);
    EXPECT_EQ(seenIn(file("copy.mp4")).hashes.size(), 100U);
}

TEST_F(ClipCopierTest, ACopierDoesNotRunWithinItsRun) {
    make("source.mp4", longClip());
    ClipCopier copier(file("source.mp4"), file("copy.mp4"));
    int refused = 0;
    copier.run([&](const CopyProgress&) {
        try {
            copier.run();
        } catch (const ClipRefusal&) {
            ++refused;
        }
        return true;
    });
    EXPECT_GT(refused, 1);
    EXPECT_EQ(seenIn(file("copy.mp4")).hashes, seenIn(file("source.mp4")).hashes);
}

TEST_F(ClipCopierTest, CopiesFromMemory) {
    make("source.mp4", longClip());
    std::ifstream stream(file("source.mp4"), std::ios::binary);
    std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(stream), {}};
    ClipCopier(Source::memory(std::move(bytes)), file("copy.mp4")).run();
    EXPECT_EQ(seenIn(file("copy.mp4")).hashes, seenIn(file("source.mp4")).hashes);
}

TEST_F(ClipCopierTest, ASourceThatBreaksOffGivesNoCopy) {
    make("source.mp4", longClip());
    std::ifstream stream(file("source.mp4"), std::ios::binary);
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(stream), {}};
    class Broken : public ByteStream {
    public:
        explicit Broken(const std::vector<uint8_t>& all) : content(all) {}
        int64_t read(uint8_t* to, int64_t count) override {
            const auto size = static_cast<int64_t>(content.size());
            if (place > size / 3 && place < size / 2)
                throw std::runtime_error("the archive is broken");
            count = std::min({count, size - place, int64_t{512}});
            std::copy_n(content.begin() + place, count, to);
            place += count;
            return count;
        }
        void seek(int64_t position) override { place = position; }
        int64_t size() override { return static_cast<int64_t>(content.size()); }

    private:
        const std::vector<uint8_t>& content;
        int64_t place = 0;
    };
    const Source source =
        Source::streams([&] { return std::make_unique<Broken>(bytes); }, "archive:clip");
    try {
        ClipCopier(source, file("copy.mp4")).run();
        FAIL() << "it was copied";
    } catch (const Exception& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("archive:clip"));
    }
    EXPECT_EQ(filesLeft(), 1);
}

} // namespace
} // namespace tio::ffmpeg
