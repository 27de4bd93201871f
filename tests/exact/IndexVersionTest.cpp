#include "IndexMatchFixture.h"
#include "base/hash.h"
#include "support/ByteEdits.h"

#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/FrameReader.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace tio::ffmpeg {
namespace {

namespace fs = std::filesystem;

using test::IndexMatchTest;
using Bytes = std::vector<uint8_t>;
using Match = FrameIndex::Match;

/// Rewrites index files as the first version had them, after docs/index-file.md: no samples, the
/// date of the clip in the header, and a hash in which each number and each column is one piece.
class FirstVersionTest : public IndexMatchTest {
protected:
    static constexpr size_t headerNumbers = 23;

    static uint64_t numberAt(const Bytes& bytes, size_t number) {
        uint64_t value = 0;
        std::memcpy(&value, bytes.data() + 8 * number, 8);
        return value;
    }

    static void setNumber(Bytes& bytes, size_t number, uint64_t value) {
        std::memcpy(bytes.data() + 8 * number, &value, 8);
    }

    static void addHash(Bytes& bytes) {
        const auto count = [&](size_t number) { return numberAt(bytes, number); };
        std::vector<size_t> pieces(headerNumbers, 8);
        const uint64_t packets = count(4);
        const uint64_t keys = count(5);
        for (const uint64_t column :
             {8 * packets, 8 * packets, 8 * packets, packets, 4 * keys, 8 * keys, 4 * count(6),
              8 * count(7), 4 * count(8), 4 * count(9), 4 * count(9)})
            if (column > 0)
                pieces.push_back(column);
        uint64_t hash = 0;
        size_t at = 0;
        for (const size_t piece : pieces) {
            hash = detail::hashBytes(bytes.data() + at, piece, hash);
            at += piece;
        }
        ASSERT_EQ(at, bytes.size());
        bytes.resize(at + 8);
        std::memcpy(bytes.data() + at, &hash, 8);
    }

    /// The index of the clip as it is now, in the first version.
    Bytes made() {
        constexpr size_t samples = 31;
        Bytes bytes = build().toBytes();
        EXPECT_EQ(numberAt(bytes, 22), samples);
        bytes.resize(bytes.size() - 8 * samples - 8);
        struct stat status {};
        EXPECT_EQ(::stat(clip.c_str(), &status), 0);
        setNumber(bytes, 1, 1);
        setNumber(bytes, 2, bytes.size() + 8);
        setNumber(bytes, 13, static_cast<uint64_t>(status.st_mtim.tv_sec));
        setNumber(bytes, 14, static_cast<uint64_t>(status.st_mtim.tv_nsec));
        setNumber(bytes, 22, 0);
        addHash(bytes);
        return bytes;
    }
};

TEST_F(FirstVersionTest, IsReadAndCompared) {
    const FrameIndex index = FrameIndex::fromBytes(made());
    EXPECT_EQ(index.frameCount(), 25);
    EXPECT_EQ(index.match(Source(clip)), Match::Fresh);
    EXPECT_EQ(open(Source(clip), index).readFrame(14).number, 14);
    Bytes bytes = test::readBytes(clip);
    EXPECT_EQ(index.match(Source::memory(bytes)), Match::Fresh);
    bytes.back() ^= 1;
    EXPECT_EQ(index.match(Source::memory(bytes)), Match::Stale);
}

TEST_F(FirstVersionTest, GoesByTheDateOfAFile) {
    const std::string path = folder.file("index");
    test::writeBytes(path, made());
    const auto load = [&] {
        return FrameIndex::load(path, std::make_shared<InputFormatContext>(clip)).match;
    };
    EXPECT_EQ(load(), Match::Fresh);
    fs::last_write_time(clip, fs::last_write_time(clip) + std::chrono::seconds(1));
    EXPECT_EQ(load(), Match::Stale);
}

TEST_F(FirstVersionTest, IsWrittenInTheSecond) {
    const Bytes bytes = FrameIndex::fromBytes(made()).toBytes();
    EXPECT_EQ(numberAt(bytes, 1), 2u);
    EXPECT_EQ(FrameIndex::fromBytes(bytes).match(Source(clip)), Match::Fresh);
}

} // namespace
} // namespace tio::ffmpeg
