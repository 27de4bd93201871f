#include "picture/smallRgb.h"

#include <algorithm>
#include <cstddef>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace tio::ffmpeg::detail {

namespace {

using ChannelWeights = std::array<SmallWeights, 3>;

// Products in 1/32 of a level, in the form that processors have one instruction for.
int roundedProduct(int value, int weight) {
    return (((value * 128 * weight) >> 14) + 1) >> 1;
}

void makePlainly(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2, bool halved,
                 const ChannelWeights& weights, uint8_t* out, int first, int end) {
    for (int i = first; i < end; ++i) {
        const int other = halved ? i / 2 : i;
        for (size_t channel = 0; channel < 3; ++channel) {
            const auto [a, b, c, addend] = weights[channel];
            const int sum = roundedProduct(in0[i], a) + roundedProduct(in1[other] - 128, b) +
                            roundedProduct(in2[other] - 128, c) + addend + 16;
            out[3 * i + static_cast<int>(channel)] =
                static_cast<uint8_t>(std::clamp(sum >> 5, 0, 255));
        }
    }
}

#if defined(__x86_64__)

constexpr int block = 32; // pixels that are made together

#define TARN_AVX2 [[gnu::target("avx2")]]

/// 32 samples as two times 16 numbers.
struct Samples {
    __m256i low;
    __m256i high;
};

/// 16 bytes, less a number, times 128.
TARN_AVX2 inline __m256i wide(__m128i bytes, int16_t subtrahend) {
    return _mm256_slli_epi16(
        _mm256_sub_epi16(_mm256_cvtepu8_epi16(bytes), _mm256_set1_epi16(subtrahend)), 7);
}

TARN_AVX2 inline Samples bytesAt(const uint8_t* in, int16_t subtrahend) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
    return {wide(_mm256_castsi256_si128(bytes), subtrahend),
            wide(_mm256_extracti128_si256(bytes, 1), subtrahend)};
}

TARN_AVX2 inline __m256i product(__m256i samples, int16_t weight) {
    return _mm256_mulhrs_epi16(samples, _mm256_set1_epi16(weight));
}

/// What in1 and in2 add to one channel.
TARN_AVX2 inline __m256i addition(__m256i in1, __m256i in2, const SmallWeights& weights) {
    const __m256i rounding = _mm256_set1_epi16(static_cast<int16_t>(weights.addend + 16));
    return _mm256_add_epi16(_mm256_add_epi16(product(in1, weights.b), product(in2, weights.c)),
                            rounding);
}

/// Where the bytes of one channel go in one of the three parts of 16 pixels; the others are left 0.
template <int Channel, int Part>
TARN_AVX2 inline __m256i spread(__m256i channel) {
    alignas(16) static constexpr auto places = [] {
        std::array<uint8_t, 16> made{};
        for (int i = 0; i < 16; ++i) {
            const int byte = 16 * Part + i;
            made[static_cast<size_t>(i)] =
                byte % 3 == Channel ? static_cast<uint8_t>(byte / 3) : uint8_t{0x80};
        }
        return made;
    }();
    const __m128i order = _mm_load_si128(reinterpret_cast<const __m128i*>(places.data()));
    return _mm256_shuffle_epi8(channel, _mm256_broadcastsi128_si256(order));
}

template <int Part>
TARN_AVX2 inline void storePart(__m256i red, __m256i green, __m256i blue, uint8_t* out) {
    const __m256i both = _mm256_or_si256(
        _mm256_or_si256(spread<0, Part>(red), spread<1, Part>(green)), spread<2, Part>(blue));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16 * Part), _mm256_castsi256_si128(both));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 48 + 16 * Part),
                     _mm256_extracti128_si256(both, 1));
}

TARN_AVX2 inline Samples twice(__m256i samples) {
    const __m256i ordered = _mm256_permute4x64_epi64(samples, 0xD8);
    return {_mm256_unpacklo_epi16(ordered, ordered), _mm256_unpackhi_epi16(ordered, ordered)};
}

template <bool Halved>
TARN_AVX2 inline Samples additionsAt(const uint8_t* in1, const uint8_t* in2,
                                     const SmallWeights& weights) {
    if constexpr (Halved) {
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in1));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in2));
        return twice(addition(wide(first, 128), wide(second, 128), weights));
    } else {
        const Samples first = bytesAt(in1, 128);
        const Samples second = bytesAt(in2, 128);
        return {addition(first.low, second.low, weights),
                addition(first.high, second.high, weights)};
    }
}

template <bool Halved>
TARN_AVX2 inline __m256i channelOf(const Samples& in0, const uint8_t* in1, const uint8_t* in2,
                                   const SmallWeights& weights) {
    const Samples added = additionsAt<Halved>(in1, in2, weights);
    const __m256i first =
        _mm256_srai_epi16(_mm256_add_epi16(product(in0.low, weights.a), added.low), 5);
    const __m256i second =
        _mm256_srai_epi16(_mm256_add_epi16(product(in0.high, weights.a), added.high), 5);
    return _mm256_permute4x64_epi64(_mm256_packus_epi16(first, second), 0xD8);
}

template <bool Halved>
TARN_AVX2 inline void makeBlock(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2,
                                const ChannelWeights& weights, uint8_t* out, int at) {
    const Samples first = bytesAt(in0 + at, 0);
    const int other = Halved ? at / 2 : at;
    const __m256i red = channelOf<Halved>(first, in1 + other, in2 + other, weights[0]);
    const __m256i green = channelOf<Halved>(first, in1 + other, in2 + other, weights[1]);
    const __m256i blue = channelOf<Halved>(first, in1 + other, in2 + other, weights[2]);
    storePart<0>(red, green, blue, out + 3 * at);
    storePart<1>(red, green, blue, out + 3 * at);
    storePart<2>(red, green, blue, out + 3 * at);
}

/// The last block overlaps the one before it, beginning at an even pixel.
/// @returns how many pixels are made
template <bool Halved>
TARN_AVX2 int makeBlocks(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2,
                         const ChannelWeights& weights, uint8_t* out, int count) {
    if (count < block)
        return 0;
    const int last = (count - block) / 2 * 2;
    for (int at = 0; at < last; at += block)
        makeBlock<Halved>(in0, in1, in2, weights, out, at);
    makeBlock<Halved>(in0, in1, in2, weights, out, last);
    return last + block;
}

int makeFast(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2, bool halved,
             const ChannelWeights& weights, uint8_t* out, int count) {
    static const bool hasAvx2 = __builtin_cpu_supports("avx2") != 0;
    if (!hasAvx2)
        return 0;
    return halved ? makeBlocks<true>(in0, in1, in2, weights, out, count)
                  : makeBlocks<false>(in0, in1, in2, weights, out, count);
}

#else

int makeFast(const uint8_t*, const uint8_t*, const uint8_t*, bool, const ChannelWeights&, uint8_t*,
             int) {
    return 0;
}

#endif

} // namespace

void makeSmallRgb(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2, bool halved,
                  const ChannelWeights& weights, uint8_t* out, int count) {
    const int done = makeFast(in0, in1, in2, halved, weights, out, count);
    makePlainly(in0, in1, in2, halved, weights, out, done, count);
}

} // namespace tio::ffmpeg::detail
