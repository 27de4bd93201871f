#pragma once

#include <TARN/core/Exception.h>

#include <cstdint>
#include <iosfwd>
#include <type_traits>

namespace tio {

namespace detail {

template <typename Q, typename = void>
struct IsNumDenStruct : std::false_type {};

template <typename Q>
struct IsNumDenStruct<Q, std::void_t<decltype(Q::num), decltype(Q::den)>>
    : std::bool_constant<std::is_same_v<decltype(Q::num), int> &&
                         std::is_same_v<decltype(Q::den), int>> {};

} // namespace detail

/// An exact fraction, used for times, durations and time bases in seconds and for scale factors.
///
/// After every construction and every operation the fraction is reduced: numerator and denominator
/// are divided by the greatest common divisor of their absolute values. Signs stay where they are:
/// -3/-6 becomes -1/-2, not 1/2. A zero denominator is allowed and makes 1/0 or -1/0; 0/0 has no
/// reduced form and stays as it is.
///
/// Products and sums are formed in `T` and wrap around when they leave its range. They are not
/// checked, because times and time bases of real media stay far inside 64 bits. Comparisons never
/// overflow.
///
/// Thread rule: a plain value; different objects may be used from any threads.
///
/// @tparam One carried unchanged; 1 in every use.
/// @tparam T   signed integer type of both fields, at most 64 bits.
template <int One, typename T>
class Rational {
    static_assert(std::is_integral_v<T> && std::is_signed_v<T> && sizeof(T) <= sizeof(int64_t),
                  "Rational needs a signed integer of at most 64 bits");

public:
    T numerator = 0;
    T denominator = 1;

    /// 0/1.
    constexpr Rational() noexcept = default;

    /// The whole number `value`/1. Implicit, so that whole numbers mix with fractions.
    constexpr Rational(T value) noexcept : numerator(value) {}

    /// `n`/`d`, reduced.
    constexpr Rational(T n, T d) noexcept : numerator(n), denominator(d) { reduce(); }

    /// From any structure with two `int` members `num` and `den`, as media libraries keep
    /// fractions.
    template <typename Q, std::enable_if_t<detail::IsNumDenStruct<Q>::value, int> = 0>
    constexpr Rational(const Q& fraction) noexcept
        : Rational(static_cast<T>(fraction.num), static_cast<T>(fraction.den)) {}

    [[nodiscard]] constexpr T getNumerator() const noexcept { return numerator; }
    [[nodiscard]] constexpr T getDenominator() const noexcept { return denominator; }

    /// The whole part: 7/2 gives 3, -7/2 gives -3 (truncation toward zero).
    /// @throws tio::Exception if the denominator is zero.
    [[nodiscard]] constexpr T toInteger() const {
        if (denominator == 0)
            throw Exception("A fraction with denominator zero has no integer value");
        const bool negative = (numerator < 0) != (denominator < 0);
        return withSign(magnitude(numerator) / magnitude(denominator), negative);
    }

    /// The nearest floating-point value; infinite or not a number if the denominator is zero.
    [[nodiscard]] constexpr double toDouble() const noexcept {
        return static_cast<double>(numerator) / static_cast<double>(denominator);
    }

    constexpr Rational operator-() const noexcept {
        return Rational(wrap(0 - bits(numerator)), denominator);
    }

    friend constexpr Rational operator*(Rational a, Rational b) noexcept {
        return Rational(product(a.numerator, b.numerator), product(a.denominator, b.denominator));
    }
    friend constexpr Rational operator/(Rational a, Rational b) noexcept {
        return Rational(product(a.numerator, b.denominator), product(a.denominator, b.numerator));
    }
    friend constexpr Rational operator+(Rational a, Rational b) noexcept {
        const auto sum =
            bits(product(a.numerator, b.denominator)) + bits(product(b.numerator, a.denominator));
        return Rational(wrap(sum), product(a.denominator, b.denominator));
    }
    friend constexpr Rational operator-(Rational a, Rational b) noexcept {
        const auto difference =
            bits(product(a.numerator, b.denominator)) - bits(product(b.numerator, a.denominator));
        return Rational(wrap(difference), product(a.denominator, b.denominator));
    }

    constexpr Rational& operator*=(Rational other) noexcept { return *this = *this * other; }
    constexpr Rational& operator/=(Rational other) noexcept { return *this = *this / other; }
    constexpr Rational& operator+=(Rational other) noexcept { return *this = *this + other; }
    constexpr Rational& operator-=(Rational other) noexcept { return *this = *this - other; }

    /// @name Comparisons
    /// By value: -1/2 equals 1/-2. 1/0 lies above and -1/0 below every finite value. 0/0 equals
    /// only itself and sorts before everything else, so that the order is total.
    /// @{
    friend constexpr bool operator==(Rational a, Rational b) noexcept { return compare(a, b) == 0; }
    friend constexpr bool operator!=(Rational a, Rational b) noexcept { return compare(a, b) != 0; }
    friend constexpr bool operator<(Rational a, Rational b) noexcept { return compare(a, b) < 0; }
    friend constexpr bool operator<=(Rational a, Rational b) noexcept { return compare(a, b) <= 0; }
    friend constexpr bool operator>(Rational a, Rational b) noexcept { return compare(a, b) > 0; }
    friend constexpr bool operator>=(Rational a, Rational b) noexcept { return compare(a, b) >= 0; }
    /// @}

    /// Writes "numerator/denominator". The caller includes the stream header that it needs anyway.
    template <typename Char, typename Traits>
    friend std::basic_ostream<Char, Traits>& operator<<(std::basic_ostream<Char, Traits>& out,
                                                        Rational value) {
        return out << value.numerator << '/' << value.denominator;
    }

private:
    __extension__ typedef __int128 Wide;

    // All arithmetic runs on 64 unsigned bits, where overflow is defined; `wrap` goes back to T.
    static constexpr uint64_t bits(T value) noexcept { return static_cast<uint64_t>(value); }
    static constexpr T wrap(uint64_t value) noexcept { return static_cast<T>(value); }
    static constexpr T product(T a, T b) noexcept { return wrap(bits(a) * bits(b)); }

    // The most negative value has no positive counterpart in T, hence the unsigned result.
    static constexpr uint64_t magnitude(T value) noexcept {
        return value < 0 ? 0 - bits(value) : bits(value);
    }
    static constexpr T withSign(uint64_t value, bool negative) noexcept {
        return wrap(negative ? 0 - value : value);
    }

    constexpr void reduce() noexcept {
        uint64_t divisor = magnitude(numerator);
        for (uint64_t rest = magnitude(denominator); rest != 0;) {
            const uint64_t next = divisor % rest;
            divisor = rest;
            rest = next;
        }
        if (divisor <= 1)
            return;
        numerator = withSign(magnitude(numerator) / divisor, numerator < 0);
        denominator = withSign(magnitude(denominator) / divisor, denominator < 0);
    }

    static constexpr int sign(Wide value) noexcept { return (value > 0) - (value < 0); }

    static constexpr int compare(Rational a, Rational b) noexcept {
        if (a.denominator == 0 && b.denominator == 0)
            return compareWithoutDenominators(a, b);
        if (isUndefined(a) || isUndefined(b))
            return isUndefined(a) ? -1 : 1;
        const Wide left = Wide{a.numerator} * b.denominator;
        const Wide right = Wide{b.numerator} * a.denominator;
        // Multiplying both sides by a negative denominator turns the order round.
        const bool turned = (a.denominator < 0) != (b.denominator < 0);
        return turned ? sign(right - left) : sign(left - right);
    }

    static constexpr bool isUndefined(Rational value) noexcept {
        return value.numerator == 0 && value.denominator == 0;
    }

    static constexpr int compareWithoutDenominators(Rational a, Rational b) noexcept {
        if (isUndefined(a) || isUndefined(b))
            return static_cast<int>(isUndefined(b)) - static_cast<int>(isUndefined(a));
        return sign(Wide{a.numerator} - b.numerator);
    }
};

} // namespace tio
