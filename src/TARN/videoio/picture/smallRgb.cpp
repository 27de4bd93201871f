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

/// 32 samples as two times 16 numbers: 0 to 7 and 16 to 23, then 8 to 15 and 24 to 31, which is how
/// the processor takes its halves apart and puts them together.
struct Samples {
    __m256i low;
    __m256i high;
};

/// Weights of one channel, once for each number.
struct WideWeights {
    __m256i a;
    __m256i b;
    __m256i c;
    __m256i rounding;
};

TARN_AVX2 inline WideWeights widened(const SmallWeights& weights) {
    return {_mm256_set1_epi16(weights.a), _mm256_set1_epi16(weights.b),
            _mm256_set1_epi16(weights.c),
            _mm256_set1_epi16(static_cast<int16_t>(weights.addend + 16))};
}

/// 16 bytes, less 128, times 128.
TARN_AVX2 inline __m256i centred(__m128i bytes) {
    return _mm256_slli_epi16(_mm256_sub_epi16(_mm256_cvtepu8_epi16(bytes), _mm256_set1_epi16(128)),
                             7);
}

/// 32 bytes, times 128.
TARN_AVX2 inline Samples bytesAt(const uint8_t* in) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
    const __m256i none = _mm256_setzero_si256();
    return {_mm256_srli_epi16(_mm256_unpacklo_epi8(none, bytes), 1),
            _mm256_srli_epi16(_mm256_unpackhi_epi8(none, bytes), 1)};
}

/// 32 bytes, less 128, times 128.
TARN_AVX2 inline Samples centredAt(const uint8_t* in) {
    const Samples samples = bytesAt(in);
    const __m256i middle = _mm256_set1_epi16(128 * 128);
    return {_mm256_sub_epi16(samples.low, middle), _mm256_sub_epi16(samples.high, middle)};
}

/// What in1 and in2 add to one channel.
TARN_AVX2 inline __m256i addition(__m256i in1, __m256i in2, const WideWeights& weights) {
    return _mm256_add_epi16(
        _mm256_add_epi16(_mm256_mulhrs_epi16(in1, weights.b), _mm256_mulhrs_epi16(in2, weights.c)),
        weights.rounding);
}

/// Where the bytes of one channel go in one of the three parts of 16 pixels; the others are left 0.
template <int Channel, std::ptrdiff_t Part>
TARN_AVX2 inline __m256i spread(__m256i channel) {
    alignas(16) static constexpr auto places = [] {
        std::array<uint8_t, 16> made{};
        for (int i = 0; i < 16; ++i) {
            const int byte = 16 * static_cast<int>(Part) + i;
            made[static_cast<size_t>(i)] =
                byte % 3 == Channel ? static_cast<uint8_t>(byte / 3) : uint8_t{0x80};
        }
        return made;
    }();
    const __m128i order = _mm_load_si128(reinterpret_cast<const __m128i*>(places.data()));
    return _mm256_shuffle_epi8(channel, _mm256_broadcastsi128_si256(order));
}

template <std::ptrdiff_t Part>
TARN_AVX2 inline void storePart(__m256i red, __m256i green, __m256i blue, uint8_t* out) {
    const __m256i both = _mm256_or_si256(
        _mm256_or_si256(spread<0, Part>(red), spread<1, Part>(green)), spread<2, Part>(blue));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16 * Part), _mm256_castsi256_si128(both));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 48 + 16 * Part),
                     _mm256_extracti128_si256(both, 1));
}

/// The samples that go with 32 of the first component.
template <bool Halved>
TARN_AVX2 inline Samples othersAt(const uint8_t* in) {
    if constexpr (Halved) {
        const __m256i samples = centred(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in)));
        return {samples, samples}; // each twice, but only once it is multiplied
    } else {
        return centredAt(in);
    }
}

template <bool Halved>
TARN_AVX2 inline __m256i channelOf(const Samples& first, const Samples& second,
                                   const Samples& third, const WideWeights& weights) {
    __m256i low = addition(second.low, third.low, weights);
    __m256i high = low;
    if constexpr (Halved) {
        high = _mm256_unpackhi_epi16(low, low);
        low = _mm256_unpacklo_epi16(low, low);
    } else {
        high = addition(second.high, third.high, weights);
    }
    return _mm256_packus_epi16(_mm256_srai_epi16(_mm256_add_epi16(first.low, low), 5),
                               _mm256_srai_epi16(_mm256_add_epi16(first.high, high), 5));
}

TARN_AVX2 inline Samples weighted(const Samples& samples, __m256i weight) {
    return {_mm256_mulhrs_epi16(samples.low, weight), _mm256_mulhrs_epi16(samples.high, weight)};
}

using WideChannelWeights = std::array<WideWeights, 3>;

/// @tparam Shared  whether the first component has the same weight in all channels
template <bool Halved, bool Shared>
TARN_AVX2 inline void makeBlock(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2,
                                const WideChannelWeights& weights, uint8_t* out, int at) {
    const int other = Halved ? at / 2 : at;
    const Samples samples = bytesAt(in0 + at);
    const Samples second = othersAt<Halved>(in1 + other);
    const Samples third = othersAt<Halved>(in2 + other);
    const Samples first = weighted(samples, weights[0].a);
    const __m256i red = channelOf<Halved>(first, second, third, weights[0]);
    const __m256i green = channelOf<Halved>(Shared ? first : weighted(samples, weights[1].a),
                                            second, third, weights[1]);
    const __m256i blue = channelOf<Halved>(Shared ? first : weighted(samples, weights[2].a), second,
                                           third, weights[2]);
    uint8_t* to = out + std::ptrdiff_t{3} * at;
    storePart<0>(red, green, blue, to);
    storePart<1>(red, green, blue, to);
    storePart<2>(red, green, blue, to);
}

/// The last block overlaps the one before it, beginning at an even pixel.
/// @returns how many pixels are made
template <bool Halved, bool Shared>
TARN_AVX2 int makeBlocks(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2,
                         const ChannelWeights& weights, uint8_t* out, int count) {
    if (count < block)
        return 0;
    // In memory of its own: what is written might else be the weights, for all the compiler knows.
    const WideChannelWeights wide = {widened(weights[0]), widened(weights[1]), widened(weights[2])};
    const int last = (count - block) / 2 * 2;
    for (int at = 0; at < last; at += block)
        makeBlock<Halved, Shared>(in0, in1, in2, wide, out, at);
    makeBlock<Halved, Shared>(in0, in1, in2, wide, out, last);
    return last + block;
}

template <bool Halved>
int makeBlocks(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2,
               const ChannelWeights& weights, uint8_t* out, int count) {
    const bool shared = weights[0].a == weights[1].a && weights[0].a == weights[2].a;
    return shared ? makeBlocks<Halved, true>(in0, in1, in2, weights, out, count)
                  : makeBlocks<Halved, false>(in0, in1, in2, weights, out, count);
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
