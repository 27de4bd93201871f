#include "exact/write/encode/ImageToFrame.h"

#include "base/checks.h"
#include "exact/write/refusal.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

using Formats = std::vector<AVPixelFormat>;

constexpr Places at("ImageToFrame");

// The first that a codec takes is used. JPEG's own forms stand first: its encoder lists the others
// as well, and refuses them.
Formats preferred(PictureFormat format, AVCodecID codec) {
    const bool jpeg = codec == AV_CODEC_ID_MJPEG;
    Formats any = jpeg ? Formats{AV_PIX_FMT_YUVJ420P}
                       : Formats{AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_0RGB32,
                                 AV_PIX_FMT_RGB24, AV_PIX_FMT_GBRP};
    const auto before = [&](Formats first) {
        first.insert(first.end(), any.begin(), any.end());
        return first;
    };
    switch (format) {
    case PictureFormat::Rgb16:
    case PictureFormat::Grey16:
    case PictureFormat::Yuv420P10:
        return before({AV_PIX_FMT_YUV420P10, AV_PIX_FMT_GBRP10});
    case PictureFormat::Yuv422:
        return before({jpeg ? AV_PIX_FMT_YUVJ422P : AV_PIX_FMT_YUV422P});
    case PictureFormat::Yuv444:
        return before({jpeg ? AV_PIX_FMT_YUVJ444P : AV_PIX_FMT_YUV444P});
    case PictureFormat::Yuv422P10:
        return before({AV_PIX_FMT_YUV422P10, AV_PIX_FMT_YUV420P10});
    case PictureFormat::Yuv444P10:
        return before({AV_PIX_FMT_YUV444P10, AV_PIX_FMT_YUV420P10});
    default:
        return any;
    }
}

// FFV1 takes everything as it is, 8-bit RGB with an unused byte and 16-bit RGB in planes.
AVPixelFormat lossless(PictureFormat format) {
    switch (format) {
    case PictureFormat::Rgb8:
        return AV_PIX_FMT_0RGB32;
    case PictureFormat::Rgb16:
        return AV_PIX_FMT_GBRP16;
    case PictureFormat::Nv12:
        return AV_PIX_FMT_YUV420P;
    default:
        return pixelFormatOf(format);
    }
}

bool isRgb(AVPixelFormat format) {
    return (av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_RGB) != 0;
}

bool isGrey(AVPixelFormat format) {
    return av_pix_fmt_desc_get(format)->nb_components == 1;
}

bool isFullRangeYuv(AVPixelFormat format) {
    return format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_YUVJ422P ||
           format == AV_PIX_FMT_YUVJ444P || format == AV_PIX_FMT_YUVJ440P;
}

int swsMatrix(AVColorSpace matrix) {
    switch (matrix) {
    case AVCOL_SPC_BT709:
        return SWS_CS_ITU709;
    case AVCOL_SPC_BT2020_NCL:
        return SWS_CS_BT2020;
    default:
        return SWS_CS_ITU601;
    }
}

void copyPlanes(const ConstImageView& picture, AVFrame& frame) {
    for (int plane = 0; plane < planeCount(picture.format); ++plane) {
        const PlaneSize size = planeSize(picture.format, picture.height, picture.width, plane);
        const auto index = static_cast<size_t>(plane);
        for (int row = 0; row < size.rows; ++row)
            std::memcpy(frame.data[index] + std::ptrdiff_t{row} * frame.linesize[index],
                        picture.planes[index] + row * picture.strides[index],
                        static_cast<size_t>(size.rowBytes));
    }
}

FrameHandle newFrame(AVPixelFormat format, const ConstImageView& picture, const std::string& path) {
    FrameHandle frame(av_frame_alloc());
    checkResult(frame ? 0 : AVERROR(ENOMEM), at(10), path);
    frame->format = format;
    frame->width = picture.width;
    frame->height = picture.height;
    checkResult(av_frame_get_buffer(frame.get(), 0), at(11), path);
    return frame;
}

} // namespace

AVPixelFormat pixelFormatOf(PictureFormat format) {
    switch (format) {
    case PictureFormat::Rgb8:
        return AV_PIX_FMT_RGB24;
    case PictureFormat::Rgb16:
        return AV_PIX_FMT_RGB48;
    case PictureFormat::Grey8:
        return AV_PIX_FMT_GRAY8;
    case PictureFormat::Grey16:
        return AV_PIX_FMT_GRAY16;
    case PictureFormat::Nv12:
        return AV_PIX_FMT_NV12;
    case PictureFormat::Yuv420:
        return AV_PIX_FMT_YUV420P;
    case PictureFormat::Yuv422:
        return AV_PIX_FMT_YUV422P;
    case PictureFormat::Yuv444:
        return AV_PIX_FMT_YUV444P;
    case PictureFormat::Yuv420P10:
        return AV_PIX_FMT_YUV420P10;
    case PictureFormat::Yuv422P10:
        return AV_PIX_FMT_YUV422P10;
    case PictureFormat::Yuv444P10:
        return AV_PIX_FMT_YUV444P10;
    }
    return AV_PIX_FMT_NONE;
}

AVPixelFormat storedFormat(const AVCodec& codec, PictureFormat format, const std::string& asked,
                           const std::string& path) {
    const Formats able = compat::pixelFormats(codec);
    const auto takes = [&](AVPixelFormat candidate) {
        return std::find(able.begin(), able.end(), candidate) != able.end();
    };
    if (!asked.empty()) {
        const AVPixelFormat wanted = av_get_pix_fmt(asked.c_str());
        if (wanted == AV_PIX_FMT_NONE || sws_isSupportedOutput(wanted) == 0)
            refuse(path, "there is no pixel format \"" + asked + "\" that can be written");
        if (!takes(wanted) && !able.empty())
            refuse(path, std::string("the encoder ") + codec.name + " does not take " + asked);
        return wanted;
    }
    if (codec.id == AV_CODEC_ID_FFV1 && takes(lossless(format)))
        return lossless(format);
    for (const AVPixelFormat candidate : preferred(format, codec.id)) {
        if (takes(candidate))
            return candidate;
    }
    for (const AVPixelFormat candidate : able) {
        if (sws_isSupportedOutput(candidate) != 0)
            return candidate;
    }
    refuse(path, std::string("the encoder ") + codec.name + " takes no pictures from memory");
}

StoredColours storedColours(ClipColours asked, AVPixelFormat stored, int height) {
    constexpr int highDefinition = 720; // lines
    if (isRgb(stored))
        return {AVCOL_SPC_RGB, AVCOL_PRI_UNSPECIFIED, AVCOL_TRC_UNSPECIFIED, AVCOL_RANGE_JPEG};
    if (isGrey(stored)) // swscale takes grey as full range
        return {AVCOL_SPC_UNSPECIFIED, AVCOL_PRI_UNSPECIFIED, AVCOL_TRC_UNSPECIFIED,
                AVCOL_RANGE_JPEG};
    const bool jpeg = isFullRangeYuv(stored);
    const AVColorRange range = jpeg ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (asked == ClipColours::Automatic)
        asked = height >= highDefinition && !jpeg ? ClipColours::Bt709 : ClipColours::Bt601;
    if (asked == ClipColours::Bt709)
        return {AVCOL_SPC_BT709, AVCOL_PRI_BT709, AVCOL_TRC_BT709, range};
    if (asked == ClipColours::Bt2020)
        return {AVCOL_SPC_BT2020_NCL, AVCOL_PRI_BT2020, AVCOL_TRC_BT2020_10, range};
    return {AVCOL_SPC_SMPTE170M, AVCOL_PRI_SMPTE170M, AVCOL_TRC_SMPTE170M, range};
}

FrameHandle ImageToFrame::convert(const ConstImageView& picture, const std::string& path) {
    FrameHandle frame = newFrame(target, picture, path);
    if (pixelFormatOf(picture.format) == target) {
        copyPlanes(picture, *frame);
    } else {
        prepare(picture, path);
        if (planeCount(picture.format) == 1) {
            convertPacked(picture, *frame);
        } else { // from a copy with room behind its rows, into which swscale reaches
            const FrameHandle copy = newFrame(source, picture, path);
            copyPlanes(picture, *copy);
            sws_scale(context.get(), copy->data, copy->linesize, 0, picture.height, frame->data,
                      frame->linesize);
        }
    }
    frame->colorspace = tags.matrix;
    frame->color_primaries = tags.primaries;
    frame->color_trc = tags.transfer;
    frame->color_range = tags.range;
    return frame;
}

void ImageToFrame::prepare(const ConstImageView& picture, const std::string& path) {
    const AVPixelFormat wanted = pixelFormatOf(picture.format);
    if (context && wanted == source)
        return;
    SwsContextHandle made(
        sws_getContext(picture.width, picture.height, wanted, picture.width, picture.height, target,
                       SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP | SWS_FULL_CHR_H_INT,
                       nullptr, nullptr, nullptr));
    checkResult(made ? 0 : AVERROR(EINVAL), at(20), path);
    const int* matrix = sws_getCoefficients(swsMatrix(tags.matrix));
    const int fromFull = isRgb(wanted) || isGrey(wanted) ? 1 : 0;
    const int toFull = tags.range == AVCOL_RANGE_JPEG ? 1 : 0;
    constexpr int one = 1 << 16; // brightness is added, contrast and saturation multiply
    sws_setColorspaceDetails(made.get(), matrix, fromFull, matrix, toFull, 0, one, one);
    context = std::move(made);
    source = wanted;
}

// swscale reads in blocks that reach behind the last pixel, where the caller's memory may end. So
// the last rows are converted from a copy with room behind it; where rows lie from the bottom up,
// all of them, since the end of any may be that of the memory.
void ImageToFrame::convertPacked(const ConstImageView& picture, AVFrame& frame) {
    constexpr int reach = 64; // bytes; the widest registers that releases use
    const auto rowBytes =
        static_cast<int>(planeSize(picture.format, picture.height, picture.width, 0).rowBytes);
    const std::ptrdiff_t stride = picture.strides[0];
    const bool ordinary = stride > 0 && stride <= std::numeric_limits<int>::max();
    const int copied = ordinary ? 1 + reach / rowBytes : picture.height;
    const int direct = std::max(picture.height - copied, 0) / 2 * 2; // two rows share their chroma
    const auto rows = [&](const uint8_t* first, std::ptrdiff_t step, int row, int count) {
        const std::array<const uint8_t*, 4> planes = {first};
        const std::array<int, 4> strides = {static_cast<int>(step)};
        sws_scale(context.get(), planes.data(), strides.data(), row, count, frame.data,
                  frame.linesize);
    };
    if (direct > 0)
        rows(picture.planes[0], stride, 0, direct);
    const int rest = picture.height - direct;
    lastRows.resize(static_cast<size_t>(rest) * static_cast<size_t>(rowBytes) + reach);
    for (int row = 0; row < rest; ++row)
        std::memcpy(lastRows.data() + std::ptrdiff_t{row} * rowBytes,
                    picture.planes[0] + (direct + row) * stride, static_cast<size_t>(rowBytes));
    rows(lastRows.data(), rowBytes, direct, rest);
}

} // namespace tio::ffmpeg::detail
