#pragma once

#include <TARN/core/Rational.h>

#include <cstdint>

namespace tio::ffmpeg::detail {

/// Sums of timestamps wrap around where they do not fit: an unknown time is the smallest integer,
/// and damaged files hold any.
[[nodiscard]] constexpr int64_t wrappingDifference(int64_t a, int64_t b) noexcept {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

[[nodiscard]] constexpr int64_t wrappingSum(int64_t a, int64_t b) noexcept {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

/// How many whole units a time holds, truncated toward zero: `(time / unit).toInteger()`, and right
/// also where only the fraction leaves 64 bits and its whole part does not.
/// @throws tio::Exception when the unit is zero
[[nodiscard]] constexpr int64_t wholeTicks(tio::Rational<1, int64_t> time,
                                           tio::Rational<1, int64_t> unit) {
    __extension__ typedef __int128 Wide;
    const Wide divisor = Wide{time.denominator} * unit.numerator;
    if (divisor != 0) {
        const Wide ticks = Wide{time.numerator} * unit.denominator / divisor;
        if (static_cast<int64_t>(ticks) == ticks)
            return static_cast<int64_t>(ticks);
    }
    return (time / unit).toInteger();
}

} // namespace tio::ffmpeg::detail
