#include <TARN/core/Vec.h>

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using tio::Vec;
using Pixel = Vec<uint8_t, 3>;

static_assert(sizeof(Pixel) == 3 && alignof(Pixel) == 1, "pixels are packed");
static_assert(sizeof(Vec<float, 3>) == 3 * sizeof(float));
static_assert(std::is_trivially_copyable_v<Pixel> && std::is_standard_layout_v<Pixel>);
static_assert(!std::is_constructible_v<Vec<int, 2>, int>, "one value does not make two");
static_assert(!std::is_constructible_v<Vec<int, 2>, int, int, int>);

TEST(Vec, KeepsValuesInOrder) {
    const Vec<int, 3> v(480, 640, 3);
    EXPECT_EQ(v[0], 480);
    EXPECT_EQ(v[1], 640);
    EXPECT_EQ(v[2], 3);
}

TEST(Vec, StartsWithZeros) {
    // Memory that is not zero before, so that a constructor which does nothing is seen.
    alignas(Vec<int, 4>) unsigned char memory[sizeof(Vec<int, 4>)];
    std::fill(std::begin(memory), std::end(memory), static_cast<unsigned char>(0xA5));
    const auto* v = new (memory) Vec<int, 4>();
    EXPECT_EQ(*v, (Vec<int, 4>(0, 0, 0, 0)));
}

TEST(Vec, ElementsCanBeAssigned) {
    Vec<int, 2> v(1, 2);
    v[1] = 7;
    EXPECT_EQ(v, (Vec<int, 2>(1, 7)));
}

TEST(Vec, DiffersWhenAnyElementDiffers) {
    const Vec<int, 2> v(480, 640);
    EXPECT_FALSE(v == (Vec<int, 2>(481, 640)));
    EXPECT_FALSE(v == (Vec<int, 2>(480, 641)));
    EXPECT_TRUE(v != (Vec<int, 2>(640, 480)));
    EXPECT_FALSE(v != (Vec<int, 2>(480, 640)));
}

TEST(Vec, CopiesElementsThatOwnSomething) {
    const auto owned = std::make_shared<int>(5);
    const Vec<std::shared_ptr<int>, 1> first(owned);
    std::vector<Vec<std::shared_ptr<int>, 1>> copies(2, first);
    EXPECT_EQ(copies[1][0], owned);
    EXPECT_EQ(owned.use_count(), 4);
}

TEST(Vec, WorksInConstantExpressions) {
    constexpr Vec<int, 2> v{2, 3};
    static_assert(v[0] * v[1] == 6 && v == Vec<int, 2>(2, 3));
    EXPECT_EQ(v[1], 3);
}

TEST(Vec, IsARangeOfItsElements) {
    std::string joined;
    for (const std::string& part : Vec<std::string, 3>("a", "b", "c"))
        joined += part;
    EXPECT_EQ(joined, "abc");
}

} // namespace
