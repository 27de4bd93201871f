#pragma once

#include <TARN/core/Rational.h>

#include <cstdint>
#include <optional>
#include <string>

/// @file
/// Arithmetic with times that says so when a result does not fit.

namespace tio::ffmpeg::detail {

using Fraction = tio::Rational<1, int64_t>;

__extension__ typedef __int128 Wide;

/// The fraction n/d, d > 0, where it fits reduced into 64 bits.
[[nodiscard]] std::optional<Fraction> makeFraction(Wide numerator, Wide denominator);

/// A denominator above zero; nothing for a fraction that is no number.
[[nodiscard]] std::optional<Fraction> withPositiveDenominator(const Fraction& value);

[[nodiscard]] std::optional<Fraction> sum(const Fraction& a, const Fraction& b);
[[nodiscard]] std::optional<Fraction> difference(const Fraction& a, const Fraction& b);

/// Least common multiple of two positive numbers; nothing above `limit`.
[[nodiscard]] std::optional<int64_t> commonMultiple(int64_t a, int64_t b, int64_t limit);

/// Whole number next to value × factor, halves upward.
[[nodiscard]] Wide roundedProduct(const Fraction& value, Wide factor);

/// The tick next to a time, halves upward; at most 2^62 from 0.
/// @param num, den  a tick lasts num / den
[[nodiscard]] int64_t roundedTicks(const Fraction& time, int num, int den);

/// The fraction with a denominator of at most `limit` that is nearest to a value.
[[nodiscard]] Fraction nearestFraction(const Fraction& value, int64_t limit);

/// "1001/30000", or "3" for a whole number.
[[nodiscard]] std::string toText(const Fraction& value);

} // namespace tio::ffmpeg::detail
