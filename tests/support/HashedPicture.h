#pragma once

#include "support/Oracle.h"

#include <TARN/videoio/Frame.h>

#include <cstdint>

namespace tio::test {

/// A picture of the library, hashed as the oracle hashes its own.
struct HashedPicture {
    int width;
    int height;
    uint64_t hash;
};

template <typename Plane>
uint64_t hashPlane(const Plane& plane, int rows, uint64_t seed = emptyHash) {
    return hashRows(plane.data(), plane.step[0], rows, plane.cols(), seed);
}

/// The frame must hold a picture, of either format.
inline HashedPicture hashedPicture(const FrameBase& frame) {
    if (const auto* rgb = dynamic_cast<const Frame<PixelFormat::RGB>*>(&frame))
        return {rgb->size[1], rgb->size[0], hashPlane(rgb->plane, rgb->size[0])};
    const auto& nv12 = dynamic_cast<const Frame<PixelFormat::NV12>&>(frame);
    const uint64_t luma = hashPlane(nv12.planes[0], nv12.size[0]);
    return {nv12.size[1], nv12.size[0], hashPlane(nv12.planes[1], (nv12.size[0] + 1) / 2, luma)};
}

} // namespace tio::test
