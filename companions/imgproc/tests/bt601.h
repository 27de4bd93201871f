#pragma once

#include <TARN/core/Vec.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

/// BT.601 in double precision, straight from its equations.
namespace bt601 {

struct Exact {
    double first;
    double second;
    double third;
};

/// Y, Cb, Cr of R, G, B from 0 to 1.
inline Exact yCbCrOf(double red, double green, double blue) {
    const double luma = 0.299 * red + 0.587 * green + 0.114 * blue;
    return {luma, (blue - luma) / 1.772, (red - luma) / 1.402};
}

/// R, G, B from 0 to 1, where Y spans 16 to 235 and the chroma values span 16 to 240.
inline Exact rgbOfLimited(int luma, int cb, int cr) {
    const double y = (luma - 16) / 219.0;
    const double blue = y + 1.772 * (cb - 128) / 224.0;
    const double red = y + 1.402 * (cr - 128) / 224.0;
    const double green = (y - 0.299 * red - 0.114 * blue) / 0.587;
    return {red, green, blue};
}

inline int toByte(double value) {
    return static_cast<int>(std::lround(255.0 * std::min(1.0, std::max(0.0, value))));
}

/// The largest difference of any colour.
inline int distance(const tio::Vec<uint8_t, 3>& pixel, const Exact& exact) {
    return std::max({std::abs(pixel[0] - toByte(exact.first)),
                     std::abs(pixel[1] - toByte(exact.second)),
                     std::abs(pixel[2] - toByte(exact.third))});
}

/// The largest difference of any component.
inline double distance(const tio::Vec<float, 3>& pixel, const Exact& exact) {
    return std::max({std::abs(pixel[0] - exact.first), std::abs(pixel[1] - exact.second),
                     std::abs(pixel[2] - exact.third)});
}

} // namespace bt601
