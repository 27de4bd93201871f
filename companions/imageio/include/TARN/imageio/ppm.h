#pragma once

#include <TARN/core/Mat.h>
#include <TARN/core/Vec.h>
#include <TARN/imageio/Export.h>

#include <cstdint>
#include <iosfwd>

namespace tio {

/// Reads one PPM image: binary ("P6") or plain ("P3"), with comments, and with any maximum from 1
/// to 65535, which is scaled to 255 and rounded to nearest. Binary samples above 255 are two bytes
/// each, the higher one first.
///
/// Rows are the image's height, columns its width, elements its pixels (R, G, B). The stream is
/// left after the last sample read, so that images that follow each other can be read one by one.
/// Memory is taken as samples arrive and not as the header announces them.
///
/// Thread rule: no state; any thread, but a stream is used by one thread at a time.
/// @throws tio::Exception "PPM: …" for a stream that cannot be read, for any other format, for a
///         sample above the maximum, for an image that breaks off, and for one without pixels or of
///         more than 2^31 - 1 pixels
[[nodiscard]] TARN_IMAGEIO_API Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>
readPpm(std::istream& stream);

} // namespace tio
