#pragma once

#include "support/StillImages.h"

#include <TARN/core/Mat.h>
#include <TARN/core/Vec.h>

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace tio::test {

using RgbImage = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;

/// Rows of R, G, B.
inline std::vector<uint8_t> bytesOf(const RgbImage& image) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(image.data());
    return {bytes, bytes + std::ptrdiff_t{3} * image.count};
}

inline void expectSamePixels(const RgbImage& image, const OracleImage& expected) {
    EXPECT_EQ(image.size, (Vec<int, 2>(expected.height, expected.width)));
    EXPECT_TRUE(bytesOf(image) == expected.pixels);
}

} // namespace tio::test
