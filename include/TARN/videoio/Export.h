#pragma once

/// @file
/// The one macro of the public headers: marks what `libtarn_videoio.so` exports. The library is
/// built with hidden visibility, so whatever does not carry it stays private.

#define TARN_VIDEOIO_API __attribute__((visibility("default")))
