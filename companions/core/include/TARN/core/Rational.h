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
/// Products and sums are exact whenever their reduced form fits into `T`: what leaves 64 bits
/// before it is reduced goes through 128. One whose reduced form does not fit is formed in 64 bits,
/// where it wraps around, reduced, and narrowed to `T`; there is no check. Comparisons are always
/// exact.
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

    /// Floating-point values do not convert, because they would lose what is after the point, and
    /// most decimal fractions have no exact value to take over. Say which fraction is meant:
    /// `Rational(1, 2)`; or choose how fine it shall be, here microseconds:
    /// `Rational(std::llround(seconds * 1e6), 1000000)`.
    template <typename F, std::enable_if_t<std::is_floating_point_v<F>, int> = 0>
    Rational(F value) = delete;
    template <typename N, typename D,
              std::enable_if_t<std::is_floating_point_v<N> || std::is_floating_point_v<D>, int> = 0>
    Rational(N n, D d) = delete;

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
        return static_cast<T>(withSign(magnitude(numerator) / magnitude(denominator), negative));
    }

    /// The nearest floating-point value; infinite or not a number if the denominator is zero.
    [[nodiscard]] constexpr double toDouble() const noexcept {
        return static_cast<double>(numerator) / static_cast<double>(denominator);
    }

    constexpr Rational operator-() const noexcept {
        return Rational(static_cast<T>(withSign(magnitude(numerator), numerator >= 0)),
                        denominator);
    }

    friend constexpr Rational operator*(Rational a, Rational b) noexcept {
        return reduced(product(a.numerator, b.numerator), product(a.denominator, b.denominator));
    }
    friend constexpr Rational operator/(Rational a, Rational b) noexcept {
        return reduced(product(a.numerator, b.denominator), product(a.denominator, b.numerator));
    }
    friend constexpr Rational operator+(Rational a, Rational b) noexcept {
        // Fits: 2^127 would need four fields of -2^63, which do not stay so when they are reduced.
        return reduced(product(a.numerator, b.denominator) + product(b.numerator, a.denominator),
                       product(a.denominator, b.denominator));
    }
    friend constexpr Rational operator-(Rational a, Rational b) noexcept {
        return reduced(product(a.numerator, b.denominator) - product(b.numerator, a.denominator),
                       product(a.denominator, b.denominator));
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
    __extension__ typedef unsigned __int128 WideBits;

    /// The unsigned counterpart of an integer, where overflow is defined and the most negative
    /// value has a magnitude.
    template <typename I>
    using Bits = std::conditional_t<std::is_same_v<I, Wide>, WideBits, uint64_t>;

    template <typename I>
    static constexpr Bits<I> bits(I value) noexcept {
        return static_cast<Bits<I>>(value);
    }
    template <typename I>
    static constexpr Bits<I> magnitude(I value) noexcept {
        return value < 0 ? 0 - bits(value) : bits(value);
    }
    template <typename B>
    static constexpr B withSign(B value, bool negative) noexcept {
        return negative ? 0 - value : value;
    }
    template <typename I>
    static constexpr I divided(I value, Bits<I> divisor) noexcept {
        return static_cast<I>(withSign(magnitude(value) / divisor, value < 0));
    }
    static constexpr bool fits(Wide value) noexcept { return static_cast<T>(value) == value; }

    // Always fits: the fields have 64 bits at most.
    static constexpr Wide product(T a, T b) noexcept { return Wide{a} * b; }

    template <typename I>
    static constexpr void reduce(I& n, I& d) noexcept {
        Bits<I> divisor = magnitude(n);
        for (Bits<I> rest = magnitude(d); rest != 0;) {
            const Bits<I> next = divisor % rest;
            divisor = rest;
            rest = next;
        }
        if (divisor <= 1)
            return;
        n = divided(n, divisor);
        d = divided(d, divisor);
    }
    constexpr void reduce() noexcept { reduce(numerator, denominator); }

    static constexpr Rational reduced(Wide n, Wide d) noexcept {
        auto wrappedN = static_cast<int64_t>(n);
        auto wrappedD = static_cast<int64_t>(d);
        if (wrappedN != n || wrappedD != d) { // seldom; 128 bits divide slowly
            reduce(n, d);
            if (fits(n) && fits(d))
                return Rational(static_cast<T>(n), static_cast<T>(d));
        }
        reduce(wrappedN, wrappedD);
        return Rational(static_cast<T>(wrappedN), static_cast<T>(wrappedD));
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
