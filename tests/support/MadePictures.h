#pragma once

#include "picture/PictureConverter.h"
#include "support/Ffmpeg.h"

#include <TARN/videoio/Image.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

/// @file
/// Decoded pictures made by hand, and what the converter makes of them.

namespace tio::test {

inline FramePointer makePicture(AVPixelFormat format, int width, int height) {
    FramePointer picture(checkFound(av_frame_alloc(), "frame"));
    picture->format = format;
    picture->width = width;
    picture->height = height;
    check(av_frame_get_buffer(picture.get(), 0), "buffer");
    for (AVBufferRef* buffer : picture->buf) // writing lines adds bits to what is there
        if (buffer != nullptr)
            std::memset(buffer->data, 0, static_cast<size_t>(buffer->size));
    return picture;
}

inline const AVPixFmtDescriptor& descriptorOf(const AVFrame& picture) {
    return *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
}

/// Writes one component by FFmpeg's own knowledge of the format.
inline void writeComponent(AVFrame& picture, int component,
                           const std::function<uint16_t(int x, int y)>& sample) {
    const AVPixFmtDescriptor& format = descriptorOf(picture);
    const bool chroma = (component == 1 || component == 2) && format.nb_components > 2;
    const int columns = AV_CEIL_RSHIFT(picture.width, chroma ? format.log2_chroma_w : 0);
    const int rows = AV_CEIL_RSHIFT(picture.height, chroma ? format.log2_chroma_h : 0);
    std::vector<uint16_t> line(static_cast<size_t>(columns));
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < columns; ++x)
            line[static_cast<size_t>(x)] = sample(x, y);
        av_write_image_line(line.data(), picture.data, picture.linesize, &format, 0, y, component,
                            columns);
    }
}

/// A picture of which every sample of a component has one value.
inline FramePointer flatPicture(AVPixelFormat format, const std::array<uint16_t, 3>& samples,
                                int width = 40, int height = 6) {
    auto picture = makePicture(format, width, height);
    for (int i = 0; i < std::min<int>(descriptorOf(*picture).nb_components, 3); ++i)
        writeComponent(*picture, i, [&](int, int) { return samples[static_cast<size_t>(i)]; });
    return picture;
}

/// A picture of noise.
inline FramePointer noisyPicture(AVPixelFormat format, int width, int height) {
    auto picture = makePicture(format, width, height);
    std::mt19937 random(static_cast<unsigned>(width * 1000 + height));
    for (int i = 0; i < descriptorOf(*picture).nb_components; ++i) {
        const unsigned largest = (1U << descriptorOf(*picture).comp[i].depth) - 1;
        writeComponent(*picture, i,
                       [&](int, int) { return static_cast<uint16_t>(random() & largest); });
    }
    return picture;
}

inline ffmpeg::Image converted(const AVFrame& picture, ffmpeg::PictureFormat format, int way = 1,
                               int height = 0, int width = 0) {
    ffmpeg::detail::PictureConverter converter({format, ffmpeg::Colours::Tagged, height, width});
    return converter.convert(picture, way);
}

/// The value of a sample, whatever its bits.
inline int sampleAt(const ffmpeg::Image& image, int plane, int row, int index) {
    const uint8_t* line = image.data(plane) + row * image.stride(plane);
    if (image.depth() == 8)
        return line[index];
    uint16_t value = 0;
    std::memcpy(&value, line + 2 * index, 2);
    return value;
}

} // namespace tio::test
