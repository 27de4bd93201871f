#include "support/Picture.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace tio::test {

namespace {

constexpr int black = 16;
constexpr int white = 235;
constexpr int grey = 128;

int barHeight(int height) {
    return std::max(1, height / 4);
}

bool bitIsSet(int number, int x, int width) {
    const int cell = std::min(x * pictureNumberBits / width, pictureNumberBits - 1);
    return (number >> (pictureNumberBits - 1 - cell)) & 1;
}

/// Rises to `top` and falls again: a moving ramp without the jump that is dear to encode.
int triangle(int position, int top) {
    const int phase = ((position % (2 * top)) + 2 * top) % (2 * top);
    return phase < top ? phase : 2 * top - phase;
}

/// Value in 8 bits of one component at a place given in luma pixels.
int sampleAt(int component, bool isRgb, int x, int y, const AVFrame& frame, int number) {
    if (y < barHeight(frame.height)) {
        if (component > 0 && !isRgb)
            return grey;
        return bitIsSet(number, x, frame.width) ? white : black;
    }
    switch (component) {
    case 0:
        return 40 + triangle(3 * x + y + 4 * number, 150);
    case 1:
        return 50 + triangle(x + 5 * number, 140);
    default:
        return 60 + triangle(2 * y + x / 2 - 3 * number, 130);
    }
}

void clearPlanes(AVFrame& frame) {
    // av_write_image_line merges its values into what is there.
    for (AVBufferRef* buffer : frame.buf) {
        if (buffer)
            std::memset(buffer->data, 0, static_cast<std::size_t>(buffer->size));
    }
}

} // namespace

void drawPicture(AVFrame& frame, int number) {
    const AVPixFmtDescriptor* format =
        av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    const bool isRgb = (format->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    clearPlanes(frame);
    for (int c = 0; c < format->nb_components; ++c) {
        const bool isChroma = !isRgb && (c == 1 || c == 2);
        const int shiftX = isChroma ? format->log2_chroma_w : 0;
        const int shiftY = isChroma ? format->log2_chroma_h : 0;
        const int width = AV_CEIL_RSHIFT(frame.width, shiftX);
        const int height = AV_CEIL_RSHIFT(frame.height, shiftY);
        const int moreBits = std::max(0, format->comp[c].depth - 8);
        std::vector<uint16_t> line(static_cast<std::size_t>(width));
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const int value = sampleAt(c, isRgb, x << shiftX, y << shiftY, frame, number);
                line[static_cast<std::size_t>(x)] = static_cast<uint16_t>(value << moreBits);
            }
            av_write_image_line(line.data(), frame.data, frame.linesize, format, 0, y, c, width);
        }
    }
}

int readPictureNumber(const uint8_t* rgb, int width, int height, int quarterTurns) {
    const bool sideways = quarterTurns % 2 != 0;
    const int drawnWidth = sideways ? height : width;
    const int drawnHeight = sideways ? width : height;
    int number = 0;
    for (int bit = 0; bit < pictureNumberBits; ++bit) {
        int x = (2 * bit + 1) * drawnWidth / (2 * pictureNumberBits);
        int y = barHeight(drawnHeight) / 2;
        int turnedWidth = drawnWidth;
        int turnedHeight = drawnHeight;
        for (int turn = 0; turn < quarterTurns; ++turn) {
            const int oldX = x;
            x = turnedHeight - 1 - y;
            y = oldX;
            std::swap(turnedWidth, turnedHeight);
        }
        const std::ptrdiff_t place = 3 * (static_cast<std::ptrdiff_t>(y) * width + x);
        number = 2 * number + (rgb[place + 1] > 127 ? 1 : 0); // green follows luma most
    }
    return number;
}

} // namespace tio::test
