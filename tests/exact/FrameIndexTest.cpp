#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/ReaderPictures.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/InputStream.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>

namespace tio::ffmpeg {
namespace {

namespace fs = std::filesystem;

using test::ClipPlan;
using testing::ElementsAre;
using testing::HasSubstr;
using Match = FrameIndex::Match;
using Step = IndexProgress::Step;

class FrameIndexTest : public testing::Test {
protected:
    void SetUp() override { test::makeClip(clip, {}); }

    std::shared_ptr<InputFormatContext> input() {
        return std::make_shared<InputFormatContext>(clip);
    }

    FrameIndex build(bool checksums = false) {
        FrameIndexOptions options;
        options.checksums = checksums;
        return FrameIndex::build(input(), options);
    }

    /// What the stored index is to the clip. An index has to come with Fresh, and only then.
    Match load() {
        const auto loaded = FrameIndex::load(index, input());
        EXPECT_EQ(loaded.index.has_value(), loaded.match == Match::Fresh);
        return loaded.match;
    }

    void appendToClip(const std::string& text) {
        auto bytes = test::readBytes(clip);
        bytes.insert(bytes.end(), text.begin(), text.end());
        test::writeBytes(clip, bytes);
    }

    test::TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    std::string index = folder.file("clip.index");
    test::LogCapture log;
};

TEST_F(FrameIndexTest, CountsTheFrames) {
    EXPECT_EQ(build().frameCount(), static_cast<int64_t>(test::oracleFrames(clip).size()));
}

TEST_F(FrameIndexTest, HasChecksumsWhenTheyAreAskedFor) {
    EXPECT_TRUE(build(true).hasChecksums());
}

TEST_F(FrameIndexTest, IsFreshForTheClipThatItWasMadeOf) {
    build().save(index);
    EXPECT_EQ(load(), Match::Fresh);
}

TEST_F(FrameIndexTest, LoadsWhatWasSaved) {
    build(true).save(index);
    FrameReaderOptions options;
    options.index = FrameIndex::load(index, input()).index;
    const auto reader = test::openReader(clip, options);
    EXPECT_EQ(reader->counters().sourceOpenings, 1);
    EXPECT_EQ(reader->frameCount(), 25);
    const auto picture = reader->readFrame(14);
    EXPECT_EQ(test::numberIn(picture), 14);
    EXPECT_EQ(picture.reached, FrameReader::Reached::Proven);
    EXPECT_EQ(reader->frameDuration(24), build().frameCount() == 25 ? Rational(1, 25) : Rational());
}

TEST_F(FrameIndexTest, SavesTheSameBytesAgain) {
    build(true).save(index);
    const auto bytes = test::readBytes(index);
    FrameIndex::load(index, input()).index->save(index);
    EXPECT_EQ(test::readBytes(index), bytes);
}

TEST_F(FrameIndexTest, IsAFileOfIntegersWithTheLowestByteFirst) {
    build().save(index);
    const auto bytes = test::readBytes(index);
    const std::vector<uint8_t> start(bytes.begin(), bytes.begin() + 16);
    EXPECT_THAT(start,
                ElementsAre('T', 'A', 'R', 'N', 'i', 'd', 'x', '\n', 2, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(bytes[16] + 256u * bytes[17] + 65536u * bytes[18], bytes.size());
}

TEST_F(FrameIndexTest, LeavesNothingUnfinishedBehind) {
    build().save(index);
    size_t files = 0;
    for ([[maybe_unused]] const auto& file : fs::directory_iterator(folder.path()))
        ++files;
    EXPECT_EQ(files, 2u); // the clip and the index
}

TEST_F(FrameIndexTest, KeepsTheOldFileWhenTheNewOneCannotBeWritten) {
    const FrameIndex made = build();
    test::writeBytes(index, {1, 2, 3});
    test::Interception intercepted;
    intercepted->fwrite.instead = [](const void*, size_t, size_t, std::FILE*) -> size_t {
        return 0;
    };
    EXPECT_EQ(test::thrownText<tio::Exception>([&] { made.save(index); }),
              "Could not write \"" + index + "\"");
    EXPECT_EQ(test::readBytes(index).size(), 3u);
    EXPECT_EQ(test::unfinishedFilesIn(folder.path()), 0);
}

TEST_F(FrameIndexTest, SaysThatAFileIsMissing) {
    EXPECT_EQ(test::thrownText<tio::Exception>(
                  [&] { static_cast<void>(FrameIndex::load(index, input())); }),
              "Could not open \"" + index + "\"");
}

TEST_F(FrameIndexTest, TellsItsSize) {
    // 25 packets and as many frames, of which 3 are key packets
    EXPECT_GE(build().byteCount(), 25 * (8 + 8 + 8 + 1 + 4 + 4) + 3 * 12);
}

// ---- another clip, or another state of it
// --------------------------------------------------------

TEST_F(FrameIndexTest, IsStaleWhenTheClipHasGrown) {
    build().save(index);
    appendToClip("and more");
    EXPECT_EQ(load(), Match::Stale);
}

TEST_F(FrameIndexTest, IsFreshWhenTheClipWasOnlyTouched) {
    build().save(index);
    fs::last_write_time(clip, fs::last_write_time(clip) + std::chrono::seconds(1));
    EXPECT_EQ(load(), Match::Fresh);
}

TEST_F(FrameIndexTest, IsStaleWhenAByteOfTheClipHasChangedAndItsTimeHasNot) {
    build().save(index);
    const auto time = fs::last_write_time(clip);
    test::flipBytes(clip, test::findPacket(clip, 20).offset + 40, 1);
    fs::last_write_time(clip, time);
    EXPECT_EQ(load(), Match::Stale);
}

TEST_F(FrameIndexTest, IsForeignForAnotherClip) {
    build().save(index);
    ClipPlan plan;
    plan.encoderOptions = {{"crf", "40"}};
    test::makeClip(clip, plan);
    EXPECT_EQ(load(), Match::Foreign);
}

TEST_F(FrameIndexTest, IsForeignForAnotherKindOfStream) {
    build().save(index);
    ClipPlan plan;
    plan.encoder = "mpeg4";
    test::makeClip(clip, plan);
    EXPECT_EQ(load(), Match::Foreign);
}

TEST_F(FrameIndexTest, IsForeignWhenItIsNoIndex) {
    test::writeBytes(index, std::vector<uint8_t>(500, 'x'));
    EXPECT_EQ(load(), Match::Foreign);
}

TEST_F(FrameIndexTest, IsForeignWhenALaterReleaseWroteIt) {
    build().save(index);
    auto bytes = test::readBytes(index);
    bytes[8] = 3; // the version
    test::writeBytes(index, bytes);
    EXPECT_EQ(load(), Match::Foreign);
}

TEST_F(FrameIndexTest, IsCorruptWhereverItIsCut) {
    build(true).save(index);
    auto bytes = test::readBytes(index);
    while (!bytes.empty()) {
        bytes.pop_back();
        test::writeBytes(index, bytes);
        ASSERT_EQ(load(), Match::Corrupt) << bytes.size() << " bytes are left";
    }
}

TEST_F(FrameIndexTest, IsCorruptWhenSomethingFollowsIt) {
    build().save(index);
    auto bytes = test::readBytes(index);
    bytes.push_back(0);
    test::writeBytes(index, bytes);
    EXPECT_EQ(load(), Match::Corrupt);
}

TEST_F(FrameIndexTest, IsNeverUsedWithAChangedByte) {
    build(true).save(index);
    const auto bytes = test::readBytes(index);
    for (size_t at = 0; at < bytes.size(); ++at)
        for (const int change : {0x01, 0x80, 0xFF}) {
            auto damaged = bytes;
            damaged[at] = static_cast<uint8_t>(damaged[at] ^ change);
            test::writeBytes(index, damaged);
            // Without its first bytes it is no index, and of another version not ours to read.
            ASSERT_EQ(load(), at < 16 ? Match::Foreign : Match::Corrupt) << "byte " << at;
        }
}

// ---- the bare index
// ------------------------------------------------------------------------------

class ExportedIndexTest : public FrameIndexTest, public testing::WithParamInterface<std::string> {};

TEST_P(ExportedIndexTest, IsThatOfAnInputStream) {
    ClipPlan plan;
    plan.format = GetParam();
    test::makeClip(clip, plan);
    build().exportSeekingIndex(index);
    const std::string expected = folder.file("expected");
    InputStream(input(), 0).storeSeekingIndex(expected);
    EXPECT_EQ(test::readBytes(index), test::readBytes(expected));
}

INSTANTIATE_TEST_SUITE_P(Containers, ExportedIndexTest,
                         testing::Values("mp4", "matroska", "mpegts"));

TEST_F(FrameIndexTest, ExportsNoIndexInWhichFramesShareATime) {
    test::Track track = test::encodeVideo({});
    track.packets.at(7).pts = track.packets.at(9).pts;
    test::writePackets(clip, "matroska", {track});
    EXPECT_THAT(test::thrownText<tio::Exception>([&] { build().exportSeekingIndex(index); }),
                HasSubstr("frames share a time, or have none"));
    EXPECT_FALSE(fs::exists(index));
}

// ---- progress
// ------------------------------------------------------------------------------------

class IndexProgressTest : public FrameIndexTest {
protected:
    /// Makes the index and stops it when `step` is reached.
    void cancelAt(Step step) {
        FrameIndexOptions options;
        options.checksums = true;
        options.progress = [step](const IndexProgress& progress) { return progress.step != step; };
        static_cast<void>(FrameIndex::build(input(), options));
    }
};

TEST_F(IndexProgressTest, CancelsTheReadingOfPackets) {
    EXPECT_THROW(cancelAt(Step::Packets), IndexingCancelled);
}

TEST_F(IndexProgressTest, CancelsTheDecodingOfPictures) {
    EXPECT_THROW(cancelAt(Step::Pictures), IndexingCancelled);
}

TEST_F(IndexProgressTest, CancelsTheMakingOfAReader) {
    FrameReaderOptions options;
    options.progress = [](const IndexProgress&) { return false; };
    EXPECT_THROW(test::openReader(clip, options), IndexingCancelled);
}

TEST_F(IndexProgressTest, TellsBytesThenPackets) {
    ClipPlan plan;
    plan.frameCount = 100;
    test::makeClip(clip, plan);
    FrameIndexOptions options;
    options.checksums = true;
    std::vector<IndexProgress> told;
    options.progress = [&](const IndexProgress& progress) {
        told.push_back(progress);
        return true;
    };
    static_cast<void>(FrameIndex::build(input(), options));
    EXPECT_EQ(told.front().total, static_cast<int64_t>(fs::file_size(clip)));
    EXPECT_EQ(told.back().step, Step::Pictures);
    EXPECT_EQ(told.back().total, 100);
    EXPECT_GT(told.back().done, 50);
}

} // namespace
} // namespace tio::ffmpeg
