#pragma once

#include "support/Ffmpeg.h"

#include <array>
#include <cstdint>
#include <vector>

/// @file
/// The pieces of a decoding loop that calls FFmpeg directly, as somebody writes it who knows
/// FFmpeg.

namespace tio::bench {

/// A decoder with as many threads as the machine has.
[[nodiscard]] test::CodecPointer openDecoder(const AVStream& stream);

/// Converts into one buffer, over and over, with rows padded for the converter.
class Converter {
public:
    Converter(const AVCodecContext& decoder, AVPixelFormat target);

    /// In the colours that the decoder's stream is tagged with, and in another size, of areas.
    Converter(const AVCodecContext& decoder, AVPixelFormat target, int width, int height);
    void convert(const AVFrame& frame);

    /// What it converted into.
    [[nodiscard]] const uint8_t* data() const noexcept { return planes[0]; }
    [[nodiscard]] int stride() const noexcept { return strides[0]; }

private:
    void prepareBuffer(AVPixelFormat target, int width, int height);

    int rows;
    test::ScalerPointer scaler;
    std::vector<uint8_t> buffer;
    std::array<uint8_t*, 4> planes{};
    std::array<int, 4> strides{};
};

} // namespace tio::bench
