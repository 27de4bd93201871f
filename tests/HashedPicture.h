#pragma once

#include "media/Oracle.h"

#include <TARN/videoio/Frame.h>
#include <TARN/videoio/Types.h>
#include <TARN/videoio/VideoPacketDecoder.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tio::test {

/// A picture of the library, hashed as the oracle hashes its own.
struct HashedPicture {
    int width;
    int height;
    uint64_t hash;
};

template <typename Plane>
uint64_t hashRows(const Plane& plane, int rows, uint64_t seed) {
    for (int row = 0; row < rows; ++row)
        seed = hashOf(plane.data() + static_cast<std::ptrdiff_t>(row) * plane.step[0],
                      static_cast<std::size_t>(plane.cols()), seed);
    return seed;
}

/// The frame must hold a picture, and be in that format.
inline HashedPicture hashedPicture(const ffmpeg::VideoPacketDecoder::Frame& frame,
                                   ffmpeg::PixelFormat format) {
    if (format == ffmpeg::PixelFormat::RGB) {
        const auto rgb = std::static_pointer_cast<Frame<PixelFormat::RGB>>(frame.frame);
        return {rgb->size[1], rgb->size[0], hashRows(rgb->plane, rgb->size[0], emptyHash)};
    }
    const auto nv12 = std::static_pointer_cast<Frame<PixelFormat::NV12>>(frame.frame);
    const uint64_t luma = hashRows(nv12->planes[0], nv12->size[0], emptyHash);
    return {nv12->size[1], nv12->size[0], hashRows(nv12->planes[1], (nv12->size[0] + 1) / 2, luma)};
}

} // namespace tio::test
