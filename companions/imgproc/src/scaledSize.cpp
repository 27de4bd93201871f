#include "scaledSize.h"

#include <TARN/core/Exception.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace tio::PixelFormat {

namespace {

// Twice the largest `int` times the lowest still fits in 64 bits.
int64_t scaledLength(int64_t length, int64_t numerator, int64_t denominator) {
    return std::max<int64_t>(1, (2 * length * numerator + denominator) / (2 * denominator));
}

} // namespace

Vec<int, 2> scaledSize(Vec<int, 2> size, Rational<1, int> scale) {
    if (scale.denominator == 0 || scale <= 0)
        throw Exception("The scale of a picture must be positive");
    // Both are negative or both positive; the sign is removed in 64 bits, where it always can be.
    const int64_t sign = scale.denominator < 0 ? -1 : 1;
    const int64_t rows = scaledLength(size[0], sign * scale.numerator, sign * scale.denominator);
    const int64_t cols = scaledLength(size[1], sign * scale.numerator, sign * scale.denominator);
    constexpr int64_t most = std::numeric_limits<int>::max() / 3;
    if (rows > most || cols > most / rows)
        throw Exception("The scaled picture would be too large");
    return {static_cast<int>(rows), static_cast<int>(cols)};
}

} // namespace tio::PixelFormat
