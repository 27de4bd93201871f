#include <TARN/core/Resize.h>

#include <gtest/gtest.h>
#include <type_traits>

namespace {

using Algorithm = tio::Resize::Algorithm;

static_assert(std::is_same_v<std::underlying_type_t<Algorithm>, int>);

TEST(Resize, AlgorithmsKeepTheirNumbers) {
    EXPECT_EQ(static_cast<int>(Algorithm::Nearest), 0);
    EXPECT_EQ(static_cast<int>(Algorithm::Bilinear), 1);
    EXPECT_EQ(static_cast<int>(Algorithm::Area), 2);
    EXPECT_EQ(static_cast<int>(Algorithm::Bicubic), 3);
    EXPECT_EQ(static_cast<int>(Algorithm::Lanczos), 4);
}

} // namespace
