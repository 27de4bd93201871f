#include "exact/frameWindow.h"

#include <gtest/gtest.h>

namespace tio::ffmpeg::detail {
namespace {

uint32_t groupOf10(int64_t frame) {
    return static_cast<uint32_t>(frame / 10);
}

size_t end(const std::vector<int64_t>& frames, size_t capacity) {
    return endOfWindow(frames, 0, capacity, groupOf10);
}

TEST(FrameWindowTest, TakesARisingListAsAWhole) {
    EXPECT_EQ(end({1, 5, 5, 30, 100}, 1), 5u);
}

TEST(FrameWindowTest, EndsWhereARisingListFallsBack) {
    EXPECT_EQ(end({1, 5, 30, 2, 3}, 2), 3u);
}

TEST(FrameWindowTest, TakesAsManyDifferentFramesAsFit) {
    EXPECT_EQ(end({9, 8, 9, 7, 6}, 3), 4u);
}

TEST(FrameWindowTest, CutsWhereAGroupEnds) {
    EXPECT_EQ(end({14, 13, 12, 11, 10, 9, 8, 7, 6}, 7), 5u);
}

TEST(FrameWindowTest, CutsAnywhereWhenThatWouldLeaveTooLittle) {
    EXPECT_EQ(end({11, 10, 9, 8, 7, 6, 5, 4, 3}, 7), 7u);
}

TEST(FrameWindowTest, IsNeverEmpty) {
    EXPECT_EQ(end({5, 4, 3}, 1), 1u);
}

TEST(FrameWindowTest, DecodesDifferentFramesInRisingOrder) {
    EXPECT_EQ(decodingOrder({7, 3, 9, 3, 1, 8}, 1, 5), (std::vector<int64_t>{1, 3, 9}));
}

} // namespace
} // namespace tio::ffmpeg::detail
