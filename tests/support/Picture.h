#pragma once

#include <cstdint>

struct AVFrame;

namespace tio::test {

/// Number of bits in the bar that numbers a picture: numbers 0 to 4095 are told apart.
constexpr int pictureNumberBits = 12;

/// Draws picture `number` of an endless sequence into a writable frame of any planar or packed
/// pixel format. All planes carry gradients that move with the number and have no symmetry, so a
/// wrong, shifted, mirrored or turned picture differs; the number itself stands in a bar of black
/// and white cells along the top, most significant bit first.
void drawPicture(AVFrame& frame, int number);

/// Reads the bar back from a decoded picture (tightly packed R, G, B rows).
/// @param width, height   size of the picture as it is given
/// @param quarterTurns    how often it was turned clockwise since it was drawn
[[nodiscard]] int readPictureNumber(const uint8_t* rgb, int width, int height,
                                    int quarterTurns = 0);

} // namespace tio::test
