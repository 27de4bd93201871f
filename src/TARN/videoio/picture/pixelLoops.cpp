#include "picture/pixelLoops.h"

namespace tio::ffmpeg::detail {

namespace {

// Each loop is written once, for the vectoriser, and inlined into a function for each kind of
// processor. None has fused multiplication, so that all give the same numbers.
#if defined(__x86_64__)
template <typename Loop, typename... Arguments>
[[gnu::target("avx2")]] void runForAvx2(Arguments... arguments) {
    Loop::run(arguments...);
}

bool hasAvx2() {
    static const bool found = __builtin_cpu_supports("avx2") != 0;
    return found;
}
#endif

template <typename Loop, typename... Arguments>
void run(Arguments... arguments) {
#if defined(__x86_64__)
    if (hasAvx2())
        return runForAvx2<Loop>(arguments...);
#endif
    Loop::run(arguments...);
}

// Rows are shorter than 2^29 samples, and the vectoriser counts best in int.
// NOLINTBEGIN(bugprone-implicit-widening-of-multiplication-result)
struct Widen {
    template <typename In>
    [[gnu::always_inline]] static void run(const In* __restrict in, float* __restrict out,
                                           int count) {
        for (int i = 0; i < count; ++i)
            out[i] = static_cast<float>(in[i]);
    }
};

struct Accumulate {
    template <typename In>
    [[gnu::always_inline]] static void run(const In* __restrict in, float weight, bool begin,
                                           float* __restrict sum, int count) {
        if (begin)
            for (int i = 0; i < count; ++i)
                sum[i] = weight * static_cast<float>(in[i]);
        else
            for (int i = 0; i < count; ++i)
                sum[i] += weight * static_cast<float>(in[i]);
    }
};

struct RepeatTwice {
    template <typename Sample>
    [[gnu::always_inline]] static void run(const Sample* __restrict in, Sample* __restrict out,
                                           int count) {
        for (int i = 0; i < count / 2; ++i) {
            out[2 * i] = in[i];
            out[2 * i + 1] = in[i];
        }
        if (count % 2 != 0)
            out[count - 1] = in[count / 2];
    }
};

// Adding a half and cutting off rounds, since nothing below 0 is left.
[[gnu::always_inline]] inline uint16_t rounded(float value, float largest) {
    const float fromBelow = value < 0.0F ? 0.0F : value;
    const float bounded = fromBelow > largest ? largest : fromBelow;
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): lround() is no instruction of vectors
    return static_cast<uint16_t>(static_cast<int32_t>(bounded + 0.5F));
}

struct CombineThree {
    [[gnu::always_inline]] static void run(const float* __restrict in0, const float* __restrict in1,
                                           const float* __restrict in2, Weights weights,
                                           float largest, uint16_t* __restrict out, int count) {
        for (int i = 0; i < count; ++i)
            out[i] = rounded(
                weights.a * in0[i] + weights.b * in1[i] + weights.c * in2[i] + weights.d, largest);
    }
};

struct CombineOne {
    [[gnu::always_inline]] static void run(const float* __restrict in, float weight, float addend,
                                           float largest, uint16_t* __restrict out, int count) {
        for (int i = 0; i < count; ++i)
            out[i] = rounded(weight * in[i] + addend, largest);
    }
};

struct Interleave {
    template <typename Sample>
    [[gnu::always_inline]] static void
    run(const Sample* __restrict in0, const Sample* __restrict in1, const Sample* __restrict in2,
        Sample* __restrict out, int count) {
        for (int i = 0; i < count; ++i) {
            out[3 * i] = in0[i];
            out[3 * i + 1] = in1[i];
            out[3 * i + 2] = in2[i];
        }
    }

    [[gnu::always_inline]] static void run(const uint8_t* __restrict in0,
                                           const uint8_t* __restrict in1, uint8_t* __restrict out,
                                           int count) {
        for (int i = 0; i < count; ++i) {
            out[2 * i] = in0[i];
            out[2 * i + 1] = in1[i];
        }
    }
};

struct Narrow {
    [[gnu::always_inline]] static void run(const uint16_t* __restrict in, uint8_t* __restrict out,
                                           int count) {
        for (int i = 0; i < count; ++i)
            out[i] = static_cast<uint8_t>(in[i]);
    }
};

// NOLINTEND(bugprone-implicit-widening-of-multiplication-result)

} // namespace

void widen(const uint8_t* in, float* out, int count) {
    run<Widen>(in, out, count);
}

void widen(const uint16_t* in, float* out, int count) {
    run<Widen>(in, out, count);
}

void accumulate(const uint8_t* in, float weight, bool begin, float* sum, int count) {
    run<Accumulate>(in, weight, begin, sum, count);
}

void accumulate(const uint16_t* in, float weight, bool begin, float* sum, int count) {
    run<Accumulate>(in, weight, begin, sum, count);
}

void repeatTwice(const float* in, float* out, int count) {
    run<RepeatTwice>(in, out, count);
}

void combine(const float* in0, const float* in1, const float* in2, const Weights& weights,
             int32_t largest, uint16_t* out, int count) {
    run<CombineThree>(in0, in1, in2, weights, static_cast<float>(largest), out, count);
}

void combine(const float* in, float weight, float addend, int32_t largest, uint16_t* out,
             int count) {
    run<CombineOne>(in, weight, addend, static_cast<float>(largest), out, count);
}

void narrow(const uint16_t* in, uint8_t* out, int count) {
    run<Narrow>(in, out, count);
}

void interleave(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2, uint8_t* out,
                int count) {
    run<Interleave>(in0, in1, in2, out, count);
}

void interleave(const uint16_t* in0, const uint16_t* in1, const uint16_t* in2, uint16_t* out,
                int count) {
    run<Interleave>(in0, in1, in2, out, count);
}

void interleave(const uint8_t* in0, const uint8_t* in1, uint8_t* out, int count) {
    run<Interleave>(in0, in1, out, count);
}

} // namespace tio::ffmpeg::detail
