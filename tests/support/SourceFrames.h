#pragma once

#include "support/Ffmpeg.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

/// @file
/// Frames as a decoder would put them out, made without one.

namespace tio::test {

/// A frame with buffers of its own, whose rows are as far apart as decoders place them.
inline FramePointer makeFrame(AVPixelFormat format, int width, int height) {
    FramePointer frame(checkFound(av_frame_alloc(), "frame"));
    frame->format = format;
    frame->width = width;
    frame->height = height;
    check(av_frame_get_buffer(frame.get(), 0), "picture");
    return frame;
}

/// Bits of a sample's high byte that may be set, for formats that keep a sample in two bytes.
inline uint32_t highByteMask(AVPixelFormat format) {
    const AVPixFmtDescriptor& descriptor = *av_pix_fmt_desc_get(format);
    const int usedBits = descriptor.comp[0].depth + descriptor.comp[0].shift;
    return usedBits <= 8 ? 0xFFu : (1u << (usedBits - 8)) - 1;
}

/// A frame full of noise, space between rows and palette included: a picture in which any byte
/// that is missing, moved or taken from elsewhere shows.
inline FramePointer makeNoise(AVPixelFormat format, int width, int height) {
    FramePointer frame = makeFrame(format, width, height);
    const uint32_t mask = highByteMask(format);
    uint32_t state = 1;
    for (const AVBufferRef* buffer : frame->buf) {
        if (buffer == nullptr)
            continue;
        for (std::size_t i = 0; i < static_cast<std::size_t>(buffer->size); ++i) {
            state = state * 1664525 + 1013904223; // a plain linear congruential generator
            buffer->data[i] = static_cast<uint8_t>((state >> 24) & (i % 2 == 1 ? mask : 0xFFu));
        }
    }
    return frame;
}

/// Columns and rows of one plane of planar 8-bit YUV.
struct PlaneSize {
    int width;
    int height;
};

inline PlaneSize planeSize(const AVFrame& frame, int plane) {
    const AVPixFmtDescriptor& format =
        *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    const bool isChroma = plane == 1 || plane == 2;
    return {AV_CEIL_RSHIFT(frame.width, isChroma ? format.log2_chroma_w : 0),
            AV_CEIL_RSHIFT(frame.height, isChroma ? format.log2_chroma_h : 0)};
}

/// A frame of planar 8-bit YUV in which every sample of a plane has that plane's value.
inline FramePointer makePlain(AVPixelFormat format, int width, int height,
                              const std::vector<uint8_t>& values) {
    FramePointer frame = makeFrame(format, width, height);
    for (int plane = 0; plane < static_cast<int>(values.size()); ++plane) {
        const int bytes = frame->linesize[plane] * planeSize(*frame, plane).height;
        std::fill_n(frame->data[plane], bytes, values[static_cast<std::size_t>(plane)]);
    }
    return frame;
}

/// The samples of one plane of planar 8-bit YUV, row after row.
inline std::vector<uint8_t> planeBytes(const AVFrame& frame, int plane) {
    const PlaneSize size = planeSize(frame, plane);
    std::vector<uint8_t> bytes;
    for (int y = 0; y < size.height; ++y) {
        const uint8_t* row = frame.data[plane] + y * frame.linesize[plane];
        bytes.insert(bytes.end(), row, row + size.width);
    }
    return bytes;
}

/// The picture of a frame of any format without what lies between its rows.
inline std::vector<uint8_t> pixelsOf(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    const int size = check(av_image_get_buffer_size(format, frame.width, frame.height, 1), "size");
    std::vector<uint8_t> pixels(static_cast<std::size_t>(size));
    check(av_image_copy_to_buffer(pixels.data(), size, frame.data, frame.linesize, format,
                                  frame.width, frame.height, 1),
          "copying a picture");
    return pixels;
}

} // namespace tio::test
