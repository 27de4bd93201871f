#include "exact/write/fractions.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

Wide magnitude(Wide value) {
    return value < 0 ? -value : value;
}

Wide commonDivisor(Wide a, Wide b) {
    a = magnitude(a);
    b = magnitude(b);
    while (b != 0)
        a = std::exchange(b, a % b);
    return a;
}

Wide roundedDown(Wide numerator, Wide denominator) {
    const Wide quotient = numerator / denominator;
    return numerator % denominator < 0 ? quotient - 1 : quotient;
}

bool fits(Wide value) {
    return value >= std::numeric_limits<int64_t>::min() &&
           value <= std::numeric_limits<int64_t>::max();
}

Fraction narrowed(Wide numerator, Wide denominator) {
    return {static_cast<int64_t>(numerator), static_cast<int64_t>(denominator)};
}

} // namespace

std::optional<Fraction> makeFraction(Wide numerator, Wide denominator) {
    const Wide divisor = commonDivisor(numerator, denominator);
    numerator /= divisor;
    denominator /= divisor;
    if (!fits(numerator) || !fits(denominator))
        return std::nullopt;
    return narrowed(numerator, denominator);
}

std::optional<Fraction> withPositiveDenominator(const Fraction& value) {
    if (value.denominator == 0)
        return std::nullopt;
    const Wide sign = value.denominator < 0 ? -1 : 1;
    return makeFraction(sign * value.numerator, sign * value.denominator);
}

std::optional<Fraction> sum(const Fraction& a, const Fraction& b) {
    // Over the common multiple of the denominators, since the plain product leaves 128 bits sooner.
    const Wide divisor = commonDivisor(a.denominator, b.denominator);
    const Wide left = b.denominator / divisor;
    const Wide right = a.denominator / divisor;
    return makeFraction(a.numerator * left + b.numerator * right, a.denominator * left);
}

std::optional<Fraction> difference(const Fraction& a, const Fraction& b) {
    const Wide divisor = commonDivisor(a.denominator, b.denominator);
    const Wide left = b.denominator / divisor;
    const Wide right = a.denominator / divisor;
    return makeFraction(a.numerator * left - b.numerator * right, a.denominator * left);
}

std::optional<int64_t> commonMultiple(int64_t a, int64_t b, int64_t limit) {
    const Wide multiple = a / commonDivisor(a, b) * b;
    if (multiple > limit)
        return std::nullopt;
    return static_cast<int64_t>(multiple);
}

Wide roundedProduct(const Fraction& value, Wide factor) {
    // Whole part and rest apart: the product of all is too long for 128 bits.
    const Wide whole = roundedDown(value.numerator, value.denominator);
    const Wide rest = value.numerator - whole * value.denominator;
    const Wide wide = value.denominator;
    return whole * factor + (2 * rest * factor + wide) / (2 * wide);
}

int64_t roundedTicks(const Fraction& time, int num, int den) {
    constexpr Wide furthest = Wide{1} << 62;
    const Wide top = Wide{time.numerator} * den;
    const Wide bottom = Wide{time.denominator} * num;
    const Wide ticks = roundedDown(2 * top + bottom, 2 * bottom);
    return static_cast<int64_t>(std::clamp(ticks, -furthest, furthest));
}

// Walks down the continued fraction of the value. The best fraction is the last convergent whose
// denominator is not too large, or the one between it and the next that comes as near as it may.
Fraction nearestFraction(const Fraction& value, int64_t limit) {
    if (value.denominator <= limit)
        return value;
    Wide before = 0, beforeDenominator = 1;
    Wide last = 1, lastDenominator = 0;
    Wide numerator = value.numerator, denominator = value.denominator;
    while (denominator != 0) {
        const Wide quotient = roundedDown(numerator, denominator);
        const Wide next = before + quotient * last;
        const Wide nextDenominator = beforeDenominator + quotient * lastDenominator;
        if (nextDenominator > limit)
            break;
        before = std::exchange(last, next);
        beforeDenominator = std::exchange(lastDenominator, nextDenominator);
        numerator = std::exchange(denominator, numerator - quotient * denominator);
    }
    if (lastDenominator == 0) // a limit below 1 leaves no fraction at all
        return value;
    const Wide steps = (limit - beforeDenominator) / lastDenominator;
    const Wide between = before + steps * last;
    const Wide betweenDenominator = beforeDenominator + steps * lastDenominator;
    const auto distance = [&](Wide top, Wide bottom) {
        return static_cast<long double>(
                   magnitude(top * value.denominator - bottom * value.numerator)) /
               static_cast<long double>(bottom);
    };
    const bool lastIsNearer =
        distance(last, lastDenominator) <= distance(between, betweenDenominator);
    return lastIsNearer ? narrowed(last, lastDenominator) : narrowed(between, betweenDenominator);
}

std::string toText(const Fraction& value) {
    std::string text = std::to_string(value.numerator);
    if (value.denominator != 1)
        text += "/" + std::to_string(value.denominator);
    return text;
}

} // namespace tio::ffmpeg::detail
