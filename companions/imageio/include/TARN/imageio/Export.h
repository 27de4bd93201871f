#pragma once

/// Marks what `tarn_imageio` shows to its users; everything else stays inside the library.
#define TARN_IMAGEIO_API __attribute__((visibility("default")))
