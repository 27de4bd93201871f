#pragma once

#include <cstddef>
#include <cstdint>

/// @file
/// The loops over the samples of a row in which conversion spends its time. Each works out the same
/// numbers on every machine; where the processor has AVX2, a version for that runs.

namespace tio::ffmpeg::detail {

/// out[i] = in[i]
void widen(const uint8_t* in, float* out, int count);
void widen(const uint16_t* in, float* out, int count);

/// sum[i] += weight * in[i], and with `begin` as if the sum were 0 before.
void accumulate(const uint8_t* in, float weight, bool begin, float* sum, int count);
void accumulate(const uint16_t* in, float weight, bool begin, float* sum, int count);

/// out[i] = in[i / 2]
void repeatTwice(const float* in, float* out, int count);

/// out[i] = a * in0[i] + b * in1[i] + c * in2[i] + d, rounded, and brought into 0 to largest.
struct Weights {
    float a;
    float b;
    float c;
    float d;
};
void combine(const float* in0, const float* in1, const float* in2, const Weights& weights,
             int32_t largest, uint16_t* out, int count);
void combine(const float* in, float weight, float addend, int32_t largest, uint16_t* out,
             int count);

/// out[i] = in[i], which is at most 255.
void narrow(const uint16_t* in, uint8_t* out, int count);

/// Rows of samples as one row of pixels.
void interleave(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2, uint8_t* out,
                int count);
void interleave(const uint16_t* in0, const uint16_t* in1, const uint16_t* in2, uint16_t* out,
                int count);
void interleave(const uint8_t* in0, const uint8_t* in1, uint8_t* out, int count);

} // namespace tio::ffmpeg::detail
