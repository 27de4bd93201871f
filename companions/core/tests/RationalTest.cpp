#include <TARN/core/Rational.h>

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <type_traits>
#include <vector>

namespace {

using Rational = tio::Rational<1, int64_t>;
using SmallRational = tio::Rational<1, int>;

constexpr int64_t lowest = std::numeric_limits<int64_t>::min();
constexpr int64_t highest = std::numeric_limits<int64_t>::max();

static_assert(sizeof(Rational) == 16 && std::is_trivially_copyable_v<Rational>);
static_assert(Rational(3) / Rational(1, 1000) == 3000, "usable in constant expressions");

struct MediaFraction {
    int num;
    int den;
};

// The fields themselves: == would take -1/2 for 1/-2.
#define EXPECT_FRACTION(value, n, d)                                                               \
    do {                                                                                           \
        const auto fraction = (value);                                                             \
        EXPECT_EQ(fraction.numerator, (n));                                                        \
        EXPECT_EQ(fraction.denominator, (d));                                                      \
    } while (false)

TEST(Rational, IsZeroByDefault) {
    EXPECT_FRACTION(Rational(), 0, 1);
}

TEST(Rational, WholeNumberHasDenominatorOne) {
    EXPECT_FRACTION(Rational(-25), -25, 1);
}

TEST(Rational, ReducesAndLeavesSignsInPlace) {
    EXPECT_FRACTION(Rational(4, -6), 2, -3);
    EXPECT_FRACTION(Rational(-3, -6), -1, -2);
    EXPECT_FRACTION(Rational(-90000, 3600), -25, 1);
    EXPECT_FRACTION(Rational(0, 5), 0, 1);
    EXPECT_FRACTION(Rational(0, -5), 0, -1);
}

TEST(Rational, KeepsZeroDenominators) {
    EXPECT_FRACTION(Rational(7, 0), 1, 0);
    EXPECT_FRACTION(Rational(-7, 0), -1, 0);
    EXPECT_FRACTION(Rational(0, 0), 0, 0);
}

TEST(Rational, ReducesTheMostNegativeNumber) {
    EXPECT_FRACTION(Rational(lowest, 2), lowest / 2, 1);
    EXPECT_FRACTION(Rational(6, lowest), 3, lowest / 2);
    EXPECT_FRACTION(Rational(lowest, lowest), -1, -1);
    EXPECT_FRACTION(Rational(lowest, 0), -1, 0);
    EXPECT_FRACTION(SmallRational(std::numeric_limits<int>::min(), 6), -1073741824, 3);
}

TEST(Rational, IsMadeFromAnyNumDenStructure) {
    EXPECT_FRACTION(Rational(MediaFraction{1001, -30030}), 1, -30);
    EXPECT_FRACTION(SmallRational(MediaFraction{50, 2}), 25, 1);
}

TEST(Rational, StructureOfOtherTypesIsRefused) {
    struct Floating {
        double num;
        double den;
    };
    EXPECT_FALSE((std::is_constructible_v<Rational, Floating>));
    EXPECT_TRUE((std::is_convertible_v<MediaFraction, Rational>));
}

// `Rational half = 0.5` would have to be 0/1.
TEST(Rational, FloatingPointDoesNotConvert) {
    static_assert(!std::is_constructible_v<Rational, double>);
    static_assert(!std::is_constructible_v<Rational, float>);
    static_assert(!std::is_constructible_v<Rational, long double>);
    static_assert(!std::is_convertible_v<double, Rational>);
    static_assert(!std::is_constructible_v<Rational, double, int>);
    static_assert(!std::is_constructible_v<Rational, int64_t, double>);
    static_assert(!std::is_constructible_v<SmallRational, double>);
    static_assert(!std::is_assignable_v<Rational&, double>);
    static_assert(std::is_convertible_v<int, Rational> && std::is_convertible_v<int64_t, Rational>);
    static_assert(std::is_constructible_v<Rational, int, int64_t>);
}

TEST(Rational, TheWaysToSayHalfASecondAreThoseOfTheHeader) {
    const double seconds = 0.5;
    EXPECT_FRACTION(Rational(1, 2), 1, 2);
    EXPECT_FRACTION(Rational(std::llround(seconds * 1e6), 1000000), 1, 2);
}

TEST(Rational, Multiplies) {
    EXPECT_FRACTION(Rational(90000) * Rational(1, 90000), 1, 1);
    EXPECT_FRACTION(Rational(-1, 2) * Rational(2, 3), -1, 3);
    EXPECT_FRACTION(Rational(1, -2) * Rational(1, -2), 1, 4);
}

TEST(Rational, Divides) {
    EXPECT_FRACTION(Rational(3) / Rational(1, 1000), 3000, 1);
    EXPECT_FRACTION(Rational(1, 2) / Rational(-3, 4), 2, -3);
    EXPECT_FRACTION(Rational(1, 2) / Rational(0), 1, 0);
}

TEST(Rational, AddsAndSubtracts) {
    EXPECT_FRACTION(Rational(1, 6) + Rational(1, 10), 4, 15);
    EXPECT_FRACTION(Rational(1, 6) - Rational(1, 10), 1, 15);
    EXPECT_FRACTION(Rational(1, 2) - Rational(1, 2), 0, 1);
    EXPECT_FRACTION(Rational(1, -2) + 1, -1, -2);
}

TEST(Rational, Negates) {
    EXPECT_FRACTION(-Rational(1, 3), -1, 3);
    EXPECT_FRACTION(-Rational(lowest), lowest, 1);
}

TEST(Rational, CompoundFormsEqualTheOperators) {
    Rational value(1, 3);
    value += Rational(1, 6);
    EXPECT_FRACTION(value, 1, 2);
    value -= Rational(3, 4);
    EXPECT_FRACTION(value, -1, 4);
    value *= Rational(2, 5);
    EXPECT_FRACTION(value, -1, 10);
    value /= Rational(1, 20);
    EXPECT_FRACTION(value, -2, 1);
}

TEST(Rational, WholeNumbersMixWithFractions) {
    EXPECT_FRACTION(2 * Rational(1, 4), 1, 2);
    EXPECT_FRACTION(Rational(3, 4) / 3, 1, 4);
    EXPECT_TRUE(1 < Rational(3, 2));
}

// 1.7e15 microseconds since 1970, in sevenths and at the clocks of pictures and sound.
TEST(Rational, ProductsBeyondSixtyFourBitsAreExactOnceTheyAreReduced) {
    const Rational sinceEpoch(1700000000123456, 1000000); // 26562500001929 / 15625
    EXPECT_FRACTION(sinceEpoch / Rational(1, 1000000), 1700000000123456, 1);
    EXPECT_FRACTION(Rational(1700000000123456) * Rational(1, 1000000), 26562500001929, 15625);
    EXPECT_FRACTION(Rational(highest, 7) * Rational(7, highest - 1), highest, highest - 1);
    EXPECT_FRACTION(Rational(lowest) * Rational(-3, -9), lowest, -3);
    EXPECT_FRACTION(Rational(highest, 3) / Rational(highest, -6), -2, 1);
    EXPECT_FRACTION(Rational(-highest, 3) * Rational(6, highest), -2, 1);
}

TEST(Rational, SumsBeyondSixtyFourBitsAreExactOnceTheyAreReduced) {
    // (7e18 + 7e18) / 7e36 is 2 / 1e18 / 7.
    const int64_t large = 7000000000000000000;
    EXPECT_FRACTION(Rational(1, large) + Rational(1, large), 1, large / 2);
    EXPECT_FRACTION(Rational(highest, 5) - Rational(highest - 5, 5), 1, 1);
    EXPECT_FRACTION(Rational(highest) + lowest, -1, 1);
    EXPECT_FRACTION(Rational(1700000000123457, 1000000) + Rational(1, 30000), 5100000000370471,
                    3000000);
}

TEST(Rational, SmallFractionsAreFormedInSixtyFourBits) {
    EXPECT_FRACTION(SmallRational(65536) * SmallRational(1, 65536), 1, 1);
    EXPECT_FRACTION(SmallRational(1920, 1081) / SmallRational(1280, 1081), 3, 2);
    EXPECT_FRACTION(SmallRational(100000, 3) * SmallRational(60000, 100001), 2000000000, 100001);
    EXPECT_FRACTION(SmallRational(1, 100000) + SmallRational(1, 100000), 1, 50000);
}

TEST(Rational, WhatDoesNotFitWhenReducedWrapsAround) {
    // 2^63 * 1001 is an odd multiple of 2^63, which modulo 2^64 is 2^63 itself.
    EXPECT_FRACTION(Rational(lowest) * 1001, lowest, 1);
    // (2^63 - 1)^2 = 2^126 - 2^64 + 1, modulo 2^64 just 1.
    EXPECT_FRACTION(Rational(highest) * highest, 1, 1);
    EXPECT_FRACTION(Rational(highest) + 1, lowest, 1);
    // 2^16 * 2^16 = 2^32 leaves nothing in 32 bits.
    EXPECT_FRACTION(SmallRational(65536) * 65536, 0, 1);
    EXPECT_FRACTION(SmallRational(std::numeric_limits<int>::max()) + 1,
                    std::numeric_limits<int>::min(), 1);
}

TEST(Rational, ToIntegerTruncatesTowardZero) {
    EXPECT_EQ(Rational(7, 2).toInteger(), 3);
    EXPECT_EQ(Rational(-7, 2).toInteger(), -3);
    EXPECT_EQ(Rational(7, -2).toInteger(), -3);
    EXPECT_EQ(Rational(-7, -2).toInteger(), 3);
    EXPECT_EQ(Rational(lowest, 3).toInteger(), lowest / 3);
}

TEST(Rational, ToIntegerWrapsWhereTheResultDoesNotFit) {
    EXPECT_EQ(Rational(lowest, -1).toInteger(), lowest);
}

TEST(Rational, ToIntegerRefusesZeroDenominators) {
    EXPECT_THROW((void)Rational(1, 0).toInteger(), tio::Exception);
    EXPECT_THROW((void)Rational(0, 0).toInteger(), tio::Exception);
}

TEST(Rational, ToDoubleKeepsTheFraction) {
    EXPECT_DOUBLE_EQ(Rational(1001, 30000).toDouble(), 1001.0 / 30000.0);
    EXPECT_DOUBLE_EQ(Rational(1, -4).toDouble(), -0.25);
}

TEST(Rational, AccessorsReturnTheFields) {
    EXPECT_EQ(Rational(4, -6).getNumerator(), 2);
    EXPECT_EQ(Rational(4, -6).getDenominator(), -3);
}

TEST(Rational, EqualityIsByValue) {
    EXPECT_TRUE(Rational(-1, 2) == Rational(1, -2));
    EXPECT_FALSE(Rational(-1, 2) != Rational(1, -2));
    EXPECT_TRUE(Rational(1, 2) != Rational(-1, 2));
}

// Every pair of an ascending list, in both orders.
TEST(Rational, OrderIsThatOfTheValues) {
    const std::vector<Rational> ascending = {
        Rational(0, 0),       Rational(-1, 0),     Rational(lowest), Rational(-3, 2),
        Rational(1, -1),      Rational(1, lowest), Rational(0, -1),  Rational(1, highest),
        Rational(-1, -3),     Rational(1, 2),      Rational(5, 2),   Rational(highest - 1),
        Rational(highest, 1), Rational(1, 0),
    };
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            const Rational a = ascending[i];
            const Rational b = ascending[j];
            SCOPED_TRACE(testing::Message() << a << " and " << b);
            EXPECT_EQ(a < b, i < j);
            EXPECT_EQ(a <= b, i <= j);
            EXPECT_EQ(a > b, i > j);
            EXPECT_EQ(a >= b, i >= j);
            EXPECT_EQ(a == b, i == j);
            EXPECT_EQ(a != b, i != j);
        }
    }
}

TEST(Rational, ComparesNeighboursBeyondSixtyFourBits) {
    // The cross products differ by one and have 126 bits.
    EXPECT_TRUE(Rational(highest - 1, highest) > Rational(highest - 2, highest - 1));
    EXPECT_TRUE(Rational(lowest, highest) < Rational(-1));
}

TEST(Rational, IsWrittenAsNumeratorSlashDenominator) {
    std::ostringstream out;
    out << Rational(4, -6);
    EXPECT_EQ(out.str(), "2/-3");
}

} // namespace
