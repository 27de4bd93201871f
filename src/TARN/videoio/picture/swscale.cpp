#include "picture/swscale.h"

#include "base/checks.h"
#include "picture/planes.h"

#include <TARN/core/MatAlloc.h>

#include <algorithm>
#include <cstddef>
#include <utility>

using tio::ffmpeg::PixelFormat;
using tio::ffmpeg::detail::closeUpRows;
using tio::ffmpeg::detail::copyRows;
using tio::ffmpeg::detail::failAssertion;
using tio::ffmpeg::detail::makePlane;
using tio::ffmpeg::detail::Places;

namespace {

constexpr Places at("swscale");

SwsContext* makeContext(tio::Vec<int, 2> size, AVPixelFormat source, AVPixelFormat destination) {
    // A codec that found no pixel format has "none", on which swscale would end the process.
    if (sws_isSupportedInput(source) == 0 || sws_isSupportedOutput(destination) == 0)
        return nullptr;
    return sws_getContext(size[1], size[0], source, size[1], size[0], destination, SWS_BICUBIC,
                          nullptr, nullptr, nullptr);
}

// swscale's fast paths to packed RGB write rows in blocks of 16 pixels. With rows of exactly
// 3 × width bytes they leave up to 7 columns at the right edge unwritten where the last block is
// less than half full, and run past the end of the last row.
bool needsPaddedRows(int width) {
    const int rest = width % 16;
    return rest >= 1 && rest <= 7;
}

int roundUp(int value, int step) {
    return (value + step - 1) / step * step;
}

} // namespace

SWScale::SWScale(tio::Vec<int, 2> pictureSize, AVPixelFormat source, AVPixelFormat destination)
    : size(pictureSize),
      m_sws_context(makeContext(pictureSize, source, destination)),
      sourceFormat(source) {
    if (!m_sws_context)
        failAssertion("Could not get swscale context", "m_sws_context", at(32));
}

SWScale::~SWScale() = default;

AVPixelFormat ffPixelFormat(PixelFormat format) {
    switch (format) {
    case PixelFormat::RGB:
        return AV_PIX_FMT_RGB24;
    case PixelFormat::NV12:
        return AV_PIX_FMT_NV12;
    case PixelFormat::Default:
        failAssertion("Default pixel format conversion should not be done with ffPixelFormat()",
                      "false", at(40));
    }
    failAssertion("Invalid pixel format", "false", at(46));
}

SWScaleDecoder::SWScaleDecoder(tio::Vec<int, 2> pictureSize, AVCodecContext* codecContext,
                               PixelFormat target)
    : SWScaleDecoder(pictureSize, codecContext->pix_fmt, target) {}

SWScaleDecoder::SWScaleDecoder(tio::Vec<int, 2> pictureSize, AVPixelFormat source,
                               PixelFormat target)
    : SWScale(pictureSize, source, ffPixelFormat(target)), targetFormat(target) {}

SWScaleDecoder::~SWScaleDecoder() = default;

bool SWScaleDecoder::fits(const AVFrame& frame) const {
    return frame.height == size[0] && frame.width == size[1] && frame.format == sourceFormat;
}

std::shared_ptr<tio::FrameBase> SWScaleDecoder::convertFrame(AVFrame* frame) {
    switch (targetFormat) {
    case PixelFormat::RGB:
        return toPackedRgb(*frame);
    case PixelFormat::NV12:
        return toNv12(*frame);
    case PixelFormat::Default:
        failAssertion("Pixel format default should have been handled before convertFrame().",
                      "false", at(68));
    }
    failAssertion("Invalid pixel format", "false", at(74));
}

// swscale reads four planes and four strides whatever the format, hence the fixed lengths.
void SWScaleDecoder::toContext(const AVFrame& frame, const std::array<uint8_t*, 4>& planes,
                               const std::array<int, 4>& strides) {
    sws_scale(m_sws_context.get(), frame.data, frame.linesize, 0, size[0], planes.data(),
              strides.data());
}

std::shared_ptr<tio::FrameBase> SWScaleDecoder::toPackedRgb(const AVFrame& frame) {
    const int height = size[0];
    const int rowBytes = 3 * size[1];
    const int stride = needsPaddedRows(size[1]) ? 3 * roundUp(size[1], 16) : rowBytes;
    auto plane = makePlane(height, stride);
    toContext(frame, {plane.data()}, {stride});
    if (stride != rowBytes)
        plane = closeUpRows(std::move(plane), rowBytes);
    return std::make_shared<tio::Frame<tio::PixelFormat::RGB>>(size, std::move(plane));
}

std::shared_ptr<tio::FrameBase> SWScaleDecoder::toNv12(const AVFrame& frame) {
    const int height = size[0];
    const int width = size[1];
    const int evenWidth = width + (width & 1);
    auto luma = makePlane(height, width);
    auto chroma = makePlane(height, evenWidth); // full height; the picture fills the upper half
    if (sourceFormat == AV_PIX_FMT_NV12) {
        // swscale leaves the chroma of this pair unwritten on releases before 8.
        copyRows(frame.data[0], frame.linesize[0], luma.data(), width, width, height);
        copyRows(frame.data[1], frame.linesize[1], chroma.data(), evenWidth, evenWidth,
                 (height + 1) / 2);
    } else {
        toContext(frame, {luma.data(), chroma.data()}, {width, evenWidth});
    }
    return std::make_shared<tio::Frame<tio::PixelFormat::NV12>>(
        size, tio::Vec<tio::ffmpeg::detail::Plane, 2>(std::move(luma), std::move(chroma)));
}

SWScaleEncoder::SWScaleEncoder(tio::Vec<int, 2> pictureSize, AVCodecContext* codecContext)
    : SWScale(pictureSize, AV_PIX_FMT_RGB24, codecContext->pix_fmt) {}

SWScaleEncoder::~SWScaleEncoder() = default;

// swscale reads pixels in blocks that reach past the last one, where the caller's memory may end.
// So the last rows are converted from a copy with room after it, in which the last pixel is
// repeated: in an odd row the pixel after it takes part in the last colour.
void SWScaleEncoder::convertFrame(const tio::RgbImage& image, AVFrame* frame,
                                  AVCodecContext* codecContext) {
    constexpr int reach = 64; // bytes; the widest registers that releases use
    const auto* pixels = reinterpret_cast<const uint8_t*>(image.data());
    const int stride = 3 * codecContext->width;
    const int copied = 1 + reach / stride;
    const int direct = std::max(image.rows() - copied, 0) / 2 * 2; // chroma rows are shared by two
    const int rest = image.rows() - direct;
    if (direct > 0)
        convertRows(pixels, stride, 0, direct, *frame);
    auto last = makePlane(1, rest * stride + reach);
    uint8_t* const behind =
        std::copy_n(pixels + std::ptrdiff_t{direct} * stride, rest * stride, last.data());
    for (int i = 0; i < reach; ++i)
        behind[i] = behind[i - 3];
    convertRows(last.data(), stride, direct, rest, *frame);
}

void SWScaleEncoder::convertRows(const uint8_t* rows, int stride, int first, int count,
                                 AVFrame& frame) {
    const std::array<const uint8_t*, 4> planes = {rows};
    const std::array<int, 4> strides = {stride};
    sws_scale(m_sws_context.get(), planes.data(), strides.data(), first, count, frame.data,
              frame.linesize);
}
