#pragma once

#include "base/handles.h"
#include "ffmpeg_compat.h"

#include <TARN/core/Mat.h>
#include <TARN/core/Vec.h>
#include <TARN/videoio/Frame.h>
#include <TARN/videoio/RgbImage.h>
#include <TARN/videoio/Types.h>

#include <array>
#include <cstdint>
#include <memory>

/// Converts pictures of one size from one pixel format to another, without scaling.
/// Thread rule: used by one thread at a time.
class SWScale {
public:
    /// `size` is (height, width) in pixels.
    /// @throws tio::Exception "Could not get swscale context"
    SWScale(tio::Vec<int, 2> size, AVPixelFormat sourceFormat, AVPixelFormat destinationFormat);
    SWScale(const SWScale&) = delete;
    SWScale& operator=(const SWScale&) = delete;
    virtual ~SWScale();

protected:
    tio::Vec<int, 2> size;
    tio::ffmpeg::detail::SwsContextHandle m_sws_context;
    AVPixelFormat sourceFormat;
};

/// FFmpeg's pixel format for one of ours.
/// @throws tio::Exception for Default, which names no format, and for values that are none
[[nodiscard]] AVPixelFormat ffPixelFormat(tio::ffmpeg::PixelFormat format);

/// From decoded frames to the pictures that the library hands out.
class SWScaleDecoder : public SWScale {
public:
    /// For frames in the codec's pixel format.
    SWScaleDecoder(tio::Vec<int, 2> size, AVCodecContext* codecContext,
                   tio::ffmpeg::PixelFormat target);
    SWScaleDecoder(tio::Vec<int, 2> size, AVPixelFormat sourceFormat,
                   tio::ffmpeg::PixelFormat target);
    ~SWScaleDecoder() override;

    /// Whether frames like this one are what the converter was made for.
    [[nodiscard]] bool fits(const AVFrame& frame) const;

    /// A new picture of the target format. The frame must fit.
    /// @throws tio::Exception for a target that is no layout of pictures
    [[nodiscard]] std::shared_ptr<tio::FrameBase> convertFrame(AVFrame* frame);

private:
    void toContext(const AVFrame& frame, const std::array<uint8_t*, 4>& planes,
                   const std::array<int, 4>& strides);
    [[nodiscard]] std::shared_ptr<tio::FrameBase> toPackedRgb(const AVFrame& frame);
    [[nodiscard]] std::shared_ptr<tio::FrameBase> toNv12(const AVFrame& frame);

    tio::ffmpeg::PixelFormat targetFormat;
};

/// From RGB images to the frames that encoders take.
class SWScaleEncoder : public SWScale {
public:
    SWScaleEncoder(tio::Vec<int, 2> size, AVCodecContext* codecContext);
    ~SWScaleEncoder() override;

    /// Writes the image into the planes of `frame`, which has buffers of the encoder's format and
    /// size. The image must be tightly packed and exactly as wide as the encoder.
    void convertFrame(const tio::RgbImage& image, AVFrame* frame, AVCodecContext* codecContext);

private:
    /// Converts `count` rows of the image, the first of which goes to row `first` of the frame.
    void convertRows(const uint8_t* rows, int stride, int first, int count, AVFrame& frame);
};
