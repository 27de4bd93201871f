#pragma once

#include <cstdint>

namespace tio::PixelFormat {

/// Takes packed pixels apart into three rows of bytes. Reads and writes nothing past their ends.
void splitRgb(const uint8_t* rgb, uint8_t* red, uint8_t* green, uint8_t* blue, int pixels) noexcept;

} // namespace tio::PixelFormat
