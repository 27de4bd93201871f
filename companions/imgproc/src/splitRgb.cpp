#include "splitRgb.h"

#include <cstddef>
#include <libyuv.h>

namespace tio::PixelFormat {

// libyuv takes the pixels that do not fill a register through a buffer on its stack, which is too
// small in the release of Debian 13. So it gets whole registers only.
void splitRgb(const uint8_t* rgb, uint8_t* red, uint8_t* green, uint8_t* blue,
              int pixels) noexcept {
    constexpr int registerPixels = 32; // of the widest kernel
    const int whole = pixels / registerPixels * registerPixels;
    if (whole != 0)
        libyuv::SplitRGBPlane(rgb, 0, red, 0, green, 0, blue, 0, whole, 1);
    for (int i = whole; i < pixels; ++i) {
        const uint8_t* const pixel = rgb + std::ptrdiff_t{3} * i;
        red[i] = pixel[0];
        green[i] = pixel[1];
        blue[i] = pixel[2];
    }
}

} // namespace tio::PixelFormat
