#pragma once

#include <TARN/videoio/Image.h>

#include <cstdint>

namespace tio::tool {

/// A 64-bit hash of rows of bytes that follow each other, and of their number and length. It tells
/// what is compared to find mistakes apart, not forgeries: rows of one size that differ in eight
/// neighbouring bytes or fewer, counted from a multiple of eight, never share it.
[[nodiscard]] uint64_t digestOf(const uint8_t* bytes, int rows, int rowBytes);

/// That of a picture of 8-bit RGB whose rows follow each other.
[[nodiscard]] uint64_t digestOf(const ffmpeg::ConstImageView& picture);

} // namespace tio::tool
