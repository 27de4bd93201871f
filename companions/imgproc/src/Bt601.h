#pragma once

#include <TARN/core/Vec.h>

#include <cstdint>

/// Colour conversion after ITU-R BT.601, row by row: Y = 0.299 R + 0.587 G + 0.114 B,
/// Cb = (B - Y) / 1.772, Cr = (R - Y) / 1.402. In 8 bits of limited range, Y spans 16 to 235 and
/// the chroma values span 16 to 240 around 128.
namespace tio::PixelFormat::bt601 {

/// Pixels that are converted at once: few enough that the terms of their chroma stay in the first
/// level cache. Even, so that no pair of pixels is torn.
constexpr int spanPixels = 512;

/// What the chroma of a span of pixels adds to each colour, in 32nds. Computed once, used for every
/// row that shares the chroma.
struct ChromaTerms {
    alignas(64) int16_t red[spanPixels];
    alignas(64) int16_t green[spanPixels];
    alignas(64) int16_t blue[spanPixels];

    /// From (Cb, Cr) pairs, each of which serves two pixels; the last may serve only one.
    void fromPairs(const uint8_t* pairs, int pixels) noexcept;

    /// From one Cb and one Cr per pixel.
    void fromPlanes(const uint8_t* cb, const uint8_t* cr, int pixels) noexcept;
};

/// Packed RGB of at most `spanPixels` pixels of limited range, within 1 of the exact values.
void writeRgb(const uint8_t* luma, const ChromaTerms& chroma, int pixels,
              Vec<uint8_t, 3>* rgb) noexcept;

/// Floats of limited-range pixels, each pair of which shares a (Cb, Cr) pair. Clamped to Y in [0,
/// 1] and Cb, Cr in [-0.5, 0.5].
void writeYCbCrOfPairs(const uint8_t* luma, const uint8_t* pairs, int pixels,
                       Vec<float, 3>* yCbCr) noexcept;

/// The same for pixels with a Cb and a Cr each.
void writeYCbCrOfPlanes(const uint8_t* luma, const uint8_t* cb, const uint8_t* cr, int pixels,
                        Vec<float, 3>* yCbCr) noexcept;

/// Floats of `pixels` full-range RGB pixels.
void writeYCbCrOfRgb(const Vec<uint8_t, 3>* rgb, int pixels, Vec<float, 3>* yCbCr) noexcept;

} // namespace tio::PixelFormat::bt601
