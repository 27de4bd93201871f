#include "base/Options.h"
#include "base/checks.h"
#include "ffmpeg_compat.h"
#include "picture/swscale.h"

#include <TARN/videoio/VideoPacketEncoder.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace tio::ffmpeg {

namespace {

using Pixel = tio::Vec<uint8_t, 3>;

constexpr detail::Places at("VideoPacketEncoder");

int evenUp(int value) {
    constexpr int largest = std::numeric_limits<int>::max(); // refused by the encoder
    return value == largest ? value : value + value % 2;
}

/// The image with even sides, as 4:2:0 needs them.
VideoPacketEncoder::Image padToEven(VideoPacketEncoder::Image image) {
    const int rows = image.rows();
    const int cols = image.cols();
    if (rows % 2 == 0 && cols % 2 == 0)
        return image;
    VideoPacketEncoder::Image padded(tio::Vec<int, 2>(evenUp(rows), evenUp(cols)));
    for (int row = 0; row < rows; ++row)
        std::copy_n(&image(row, 0), cols, &padded(row, 0));
    if (cols % 2 != 0) {
        for (int row = 0; row < padded.rows(); ++row)
            padded(row, padded.cols() - 1) = Pixel(0, 0, 0);
    }
    // An added row stays as the allocator gave it, and an image that needed only a column loses its
    // last row to black. The header says so.
    if (padded.rows() == rows)
        std::fill_n(&padded(rows - 1, 0), padded.cols(), Pixel(0, 0, 0));
    return padded;
}

} // namespace

VideoPacketEncoder::VideoPacketEncoder(tio::Vec<int, 2> size, Rational unitTime,
                                       const std::map<std::string, std::string>& options)
    : PacketEncoder(unitTime, AV_CODEC_ID_H264) {
    codecContext->width = evenUp(size[1]);
    codecContext->height = evenUp(size[0]);
    codecContext->pix_fmt = AV_PIX_FMT_YUV420P;
    detail::Options dictionary;
    setOption(dictionary.address(), "preset", "veryfast", 0);
    setOption(dictionary.address(), "level", "51", 0);
    for (const auto& [key, value] : options)
        setOption(dictionary.address(), key.c_str(), value.c_str(), 0);
    openCodec(dictionary.release());
    allocateFrame();
    swscaleEncoder = std::make_shared<SWScaleEncoder>(
        tio::Vec<int, 2>(codecContext->height, codecContext->width), codecContext);
}

VideoPacketEncoder::~VideoPacketEncoder() = default;

void VideoPacketEncoder::allocateFrame() {
    frame = av_frame_alloc();
    if (frame == nullptr)
        detail::failAssertion("Failed to allocate ffmpeg frame", "frame", at(55));
    frame->format = codecContext->pix_fmt;
    frame->width = codecContext->width;
    frame->height = codecContext->height;
    frame->pts = -1; // so that the first frame without a time is at 0
    detail::checkResult(av_frame_get_buffer(frame, 1), at(66));
}

std::vector<OutputPacket> VideoPacketEncoder::writeNextFrame(Image image, Rational time) {
    requireFrame();
    // The converter reads rows as wide as the encoder, so anything else would read past the image.
    if (evenUp(image.rows()) != codecContext->height || evenUp(image.cols()) != codecContext->width)
        detail::failAssertion(
            "An image of " + std::to_string(image.rows()) + " rows and " +
                std::to_string(image.cols()) + " columns does not fit an encoder of " +
                std::to_string(codecContext->height) + " by " + std::to_string(codecContext->width),
            "image.size == size", at(88));
    swscaleEncoder->convertFrame(padToEven(std::move(image)), frame, codecContext);
    return encodeFrameAt(time);
}

std::vector<OutputPacket> VideoPacketEncoder::writeNextFrame(Image image) {
    return writeNextFrame(std::move(image), getFrameTime() + getUnitTime());
}

} // namespace tio::ffmpeg
