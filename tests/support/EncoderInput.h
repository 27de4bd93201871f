#pragma once

#include "support/Ffmpeg.h"
#include "support/Picture.h"

#include <TARN/core/Mat.h>
#include <TARN/core/Vec.h>
#include <TARN/videoio/AudioPacketEncoder.h>
#include <TARN/videoio/VideoPacketEncoder.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

/// @file
/// Pictures and sound for encoders.

namespace tio::test {

using Image = ffmpeg::VideoPacketEncoder::Image;
using Block = ffmpeg::AudioPacketEncoder::Samples;
using Pixel = tio::Vec<uint8_t, 3>;

/// An image in one colour.
inline Image plainImage(int rows, int cols, Pixel colour = Pixel(90, 120, 150)) {
    Image image(tio::Vec<int, 2>(rows, cols));
    for (int i = 0; i < image.count; ++i)
        image.data()[i] = colour;
    return image;
}

/// An image in which every pixel differs from its neighbours.
inline Image spottedImage(int rows, int cols) {
    Image image(tio::Vec<int, 2>(rows, cols));
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < cols; ++c)
            image(r, c) = Pixel(static_cast<uint8_t>(7 * r + 3 * c), static_cast<uint8_t>(11 * c),
                                static_cast<uint8_t>(5 * r + 13));
    }
    return image;
}

/// Picture `number` of the sequence that carries numbers.
inline Image numberedImage(int rows, int cols, int number) {
    Image image(tio::Vec<int, 2>(rows, cols));
    FramePointer frame(checkFound(av_frame_alloc(), "frame"));
    frame->format = AV_PIX_FMT_RGB24;
    frame->width = cols;
    frame->height = rows;
    check(av_frame_get_buffer(frame.get(), 0), "picture");
    drawPicture(*frame, number);
    for (int r = 0; r < rows; ++r)
        std::memcpy(&image(r, 0), frame->data[0] + r * frame->linesize[0],
                    static_cast<std::size_t>(3 * cols));
    return image;
}

/// A block of samples whose values tell their place: never two alike in one block of 1024.
inline Block numberedBlock(int rows, int channels) {
    Block block(tio::Vec<int, 2>(rows, channels));
    for (int i = 0; i < block.count; ++i)
        block.data()[i] = static_cast<float>(i) / 16384.0F - 0.25F;
    return block;
}

} // namespace tio::test
