#pragma once

/// Marks what `tarn_imgproc` shows to its users; everything else stays inside the library.
#define TARN_IMGPROC_API __attribute__((visibility("default")))
