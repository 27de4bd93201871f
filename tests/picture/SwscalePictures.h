#pragma once

#include "picture/swscale.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace tio::test {

/// What a picture is converted to.
using Target = ffmpeg::PixelFormat;
using RgbFrame = Frame<PixelFormat::RGB>;
using Nv12Frame = Frame<PixelFormat::NV12>;
using Plane = Mat<uint8_t, 2, MatOptions<0, 1>>;

inline const RgbFrame& rgbOf(const std::shared_ptr<FrameBase>& frame) {
    return dynamic_cast<const RgbFrame&>(*frame);
}

inline const Nv12Frame& nv12Of(const std::shared_ptr<FrameBase>& frame) {
    return dynamic_cast<const Nv12Frame&>(*frame);
}

inline std::shared_ptr<FrameBase> convert(AVFrame& frame, Target target) {
    SWScaleDecoder decoder({frame.height, frame.width}, static_cast<AVPixelFormat>(frame.format),
                           target);
    return decoder.convertFrame(&frame);
}

/// One plane of a picture in RGB, two of one in NV12.
inline std::vector<Plane> planesOf(const std::shared_ptr<FrameBase>& frame, Target target) {
    if (target == Target::RGB)
        return {rgbOf(frame).plane};
    return {nv12Of(frame).planes[0], nv12Of(frame).planes[1]};
}

inline std::vector<uint8_t> bytesOf(const Plane& plane) {
    return {plane.data(), plane.data() + plane.count};
}

} // namespace tio::test
