#include <TARN/core/Mat.h>

#include <climits>
#include <cstdint>
#include <gtest/gtest.h>
#include <type_traits>
#include <utility>

namespace {

using tio::Mat;
using tio::Vec;
using Size = Vec<int, 2>;
using RgbImage = Mat<Vec<uint8_t, 3>, 2>;
using Samples = Mat<float, 2, tio::MatOptions<1, 1>>;

static_assert(!std::is_convertible_v<Size, Samples>, "memory is allocated only when asked for");
static_assert(std::is_same_v<decltype(std::declval<const Samples&>()(0, 0)), const float&>);
static_assert(std::is_same_v<decltype(std::declval<const Samples&>().data()), const float*>);
static_assert(std::is_same_v<decltype(std::declval<Samples&>()(0, 0)), float&>);

TEST(Mat, IsEmptyByDefault) {
    const RgbImage image;
    EXPECT_EQ(image.count, 0);
    EXPECT_EQ(image.size, Size(0, 0));
    EXPECT_EQ(image.storage, nullptr);
    EXPECT_EQ(image.data(), nullptr);
}

TEST(Mat, AllocatesRowsWithoutGaps) {
    const RgbImage image(Size(480, 640));
    EXPECT_EQ(image.count, 307200);
    EXPECT_EQ(image.size, Size(480, 640));
    EXPECT_EQ(image.step, Size(640, 1));
    EXPECT_EQ(image.rows(), 480);
    EXPECT_EQ(image.cols(), 640);
}

TEST(Mat, OwnsEveryByteOfItsElements) {
    RgbImage image(Size(480, 640));
    char* const bytes = image.storage.get();
    bytes[0] = 1;
    bytes[921600 - 1] = 2; // 480 * 640 pixels of three bytes; the sanitizer sees a step beyond
    EXPECT_EQ(image(0, 0)[0], 1);
    EXPECT_EQ(image(479, 639)[2], 2);
}

TEST(Mat, FindsElementsByStep) {
    Samples block(Size(3, 4));
    for (int i = 0; i < block.count; ++i)
        block.data()[i] = static_cast<float>(i);
    EXPECT_EQ(block(0, 3), 3.0F);
    EXPECT_EQ(block(2, 1), 9.0F);
    block.step = Size(1, 3); // the same bytes read by columns
    EXPECT_EQ(block(2, 1), 5.0F);
}

TEST(Mat, CopiesShareTheStorage) {
    Samples first(Size(2, 2));
    first(1, 1) = 1.0F;
    Samples second = first;
    second(1, 1) = 4.0F;
    EXPECT_EQ(first(1, 1), 4.0F);
    EXPECT_EQ(first.storage.use_count(), 2);
}

TEST(Mat, StorageLivesAsLongAsTheLastCopy) {
    Samples kept;
    {
        Samples original(Size(100, 100));
        original(99, 99) = 7.0F;
        kept = original;
    }
    EXPECT_EQ(kept(99, 99), 7.0F);
}

TEST(Mat, AdoptsGivenStorage) {
    const std::shared_ptr<char> storage = tio::MatAlloc::getGlobalMatAlloc()->getBytes(12);
    const RgbImage image(Size(2, 2), storage);
    EXPECT_EQ(image.storage, storage);
    EXPECT_EQ(image.count, 4);
    EXPECT_EQ(image.step, Size(2, 1));
}

TEST(Mat, MayHaveNoElements) {
    const Samples block(Size(0, 2));
    EXPECT_EQ(block.count, 0);
    EXPECT_EQ(block.cols(), 2);
    EXPECT_EQ(Samples(Size(0, 0), nullptr).count, 0);
}

TEST(Mat, RefusesNegativeSizes) {
    EXPECT_THROW(Samples(Size(-1, 4)), tio::Exception);
    EXPECT_THROW(Samples(Size(4, -1)), tio::Exception);
    EXPECT_THROW(Samples(Size(-4, -4)), tio::Exception);
}

TEST(Mat, RefusesCountsBeyondInt) {
    EXPECT_THROW(Samples(Size(65536, 32768)), tio::Exception); // 2^31
    EXPECT_THROW(Samples(Size(INT_MAX, INT_MAX)), tio::Exception);
    // 2^16 * 2^16 would be zero elements in 32 bits.
    EXPECT_THROW(Samples(Size(65536, 65536), nullptr), tio::Exception);
}

TEST(Mat, RefusesElementsWithoutStorage) {
    EXPECT_THROW(Samples(Size(1, 1), nullptr), tio::Exception);
}

} // namespace
