#pragma once

#include <array>
#include <cstdint>

namespace tio::ffmpeg::detail {

/// What makes one channel of three 8-bit samples, in whole numbers: 8192 stands for a weight of 1.
struct SmallWeights {
    int16_t a;
    int16_t b;
    int16_t c;
    int16_t addend; ///< times 32, for in1 and in2 from which 128 is taken
};

/// A row of 8-bit RGB pixels: for each channel a * in0 + b * in1 + c * in2 + addend, within a tenth
/// of a level of what is rounded. The numbers are the same on every machine.
/// @param halved  whether each sample of in1 and in2 serves for two pixels
void makeSmallRgb(const uint8_t* in0, const uint8_t* in1, const uint8_t* in2, bool halved,
                  const std::array<SmallWeights, 3>& weights, uint8_t* out, int count);

} // namespace tio::ffmpeg::detail
