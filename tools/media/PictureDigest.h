#pragma once

#include <TARN/imgproc/PixelFormat.h>

#include <cstdint>

namespace tio::tool {

/// A 64-bit hash of a picture's size and bytes. It tells pictures apart that are compared to find
/// mistakes, not forgeries: pictures of one size that differ in eight neighbouring bytes or fewer,
/// counted from a multiple of eight, never share it.
[[nodiscard]] uint64_t pictureDigest(const tio::PixelFormat::RgbImage& picture);

} // namespace tio::tool
