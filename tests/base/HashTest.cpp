#include "base/hash.h"

#include "base/littleEndian.h"

#include <gtest/gtest.h>
#include <set>
#include <vector>

namespace tio::ffmpeg::detail {
namespace {

TEST(LittleEndianTest, HasTheLowestByteFirst) {
    const std::vector<uint8_t> bytes = {0x01, 0x02, 0x03, 0xFF};
    EXPECT_EQ(fromLittleEndian<uint32_t>(bytes.data()), 0xFF030201u);
    EXPECT_EQ(fromLittleEndian<int32_t>(bytes.data()), -16580095);
    std::vector<uint8_t> written(4);
    toLittleEndian<int32_t>(-16580095, written.data());
    EXPECT_EQ(written, bytes);
}

TEST(HashTest, DiffersForEveryBitOfEveryLength) {
    for (size_t size = 1; size < 80; ++size) {
        std::vector<uint8_t> bytes(size, 0x5A);
        std::set<uint64_t> hashes = {hashBytes(bytes.data(), size)};
        for (size_t bit = 0; bit < 8 * size; ++bit) {
            bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] ^ 1 << bit % 8);
            hashes.insert(hashBytes(bytes.data(), size));
            bytes[bit / 8] = 0x5A;
        }
        ASSERT_EQ(hashes.size(), 8 * size + 1) << size << " bytes";
    }
}

TEST(HashTest, TellsLengthsOfZerosApart) {
    const std::vector<uint8_t> zeros(200, 0);
    std::set<uint64_t> hashes;
    for (size_t size = 0; size <= zeros.size(); ++size)
        hashes.insert(hashBytes(zeros.data(), size));
    EXPECT_EQ(hashes.size(), zeros.size() + 1);
}

TEST(HashTest, DependsOnTheSeed) {
    EXPECT_NE(hashBytes("abc", 3, 1), hashBytes("abc", 3, 2));
}

} // namespace
} // namespace tio::ffmpeg::detail
