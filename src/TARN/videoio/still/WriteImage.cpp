#include "base/checks.h"
#include "base/initialise.h"
#include "ffmpeg_compat.h"
#include "picture/swscale.h"

#include <TARN/videoio/WriteImage.h>
#include <TARN/videoio/detail/Handles.h>

#include <cstdio>
#include <map>
#include <new>
#include <stdexcept>

namespace tio::ffmpeg {

namespace {

using Image = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;

constexpr detail::Location at(int number) {
    return {"WriteImage", number};
}

const std::map<ImageFileType, AVCodecID> codecTable = {
    {ImageFileType::Jpeg, AV_CODEC_ID_MJPEG},
    {ImageFileType::Png, AV_CODEC_ID_PNG},
    {ImageFileType::Ppm, AV_CODEC_ID_PPM},
};

const std::map<ImageFileType, AVPixelFormat> pixelFormatTable = {
    {ImageFileType::Jpeg, AV_PIX_FMT_YUVJ420P},
    {ImageFileType::Png, AV_PIX_FMT_RGB24},
    {ImageFileType::Ppm, AV_PIX_FMT_RGB24},
};

template <typename Value>
Value lookUp(const std::map<ImageFileType, Value>& table, ImageFileType type) {
    const auto row = table.find(type);
    if (row == table.end())
        throw std::out_of_range("invalid map<K, T> key");
    return row->second;
}

detail::CodecContextHandle openEncoder(ImageFileType type, Vec<int, 2> size, int compressionLevel) {
    const AVCodec* codec = avcodec_find_encoder(lookUp(codecTable, type));
    if (codec == nullptr)
        detail::failAssertion("Could not find ffmpeg's encoder codec", "codec", at(41));
    detail::CodecContextHandle codecContext(avcodec_alloc_context3(codec));
    if (!codecContext)
        detail::failAssertion("Could not open codec for image writing", "codecContext", at(45));
    codecContext->width = size[1];
    codecContext->height = size[0];
    codecContext->pix_fmt = lookUp(pixelFormatTable, type);
    codecContext->compression_level = compressionLevel;
    codecContext->time_base = {1, 1};
    detail::checkResult(avcodec_open2(codecContext.get(), codecContext->codec, nullptr), at(54));
    return codecContext;
}

detail::FrameHandle makeFrame(const AVCodecContext& codecContext) {
    detail::FrameHandle frame(av_frame_alloc());
    if (!frame)
        detail::failAssertion("Could not allocate frame for image writing", "frame", at(59));
    frame->format = codecContext.pix_fmt;
    frame->width = codecContext.width;
    frame->height = codecContext.height;
    detail::checkResult(av_frame_get_buffer(frame.get(), 1), at(65));
    return frame;
}

detail::PacketHandle encode(const Image& image, AVCodecContext& codecContext) {
    const detail::FrameHandle frame = makeFrame(codecContext);
    SWScaleEncoder converter(image.size, &codecContext);
    converter.convertFrame(image, frame.get(), &codecContext);
    detail::checkResult(avcodec_send_frame(&codecContext, frame.get()), at(74));
    detail::PacketHandle packet(av_packet_alloc());
    if (!packet)
        throw std::bad_alloc();
    // These encoders give their one packet at once.
    detail::checkResult(avcodec_receive_packet(&codecContext, packet.get()), at(82));
    return packet;
}

// Kept: after a failed write the file stays open, and what was written stays.
void writeFile(const std::string& path, const uint8_t* data, size_t size) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr)
        detail::failAssertion("Could not open " + path, "f", at(87));
    // What is small is written when the file is closed, so that the close may be what fails.
    const bool written = std::fwrite(data, 1, size, f) == size && std::fclose(f) == 0;
    if (!written)
        detail::failAssertion("Could not write to " + path, "fwrite(data, 1, size, f) == size",
                              at(90));
}

} // namespace

void writeImage(std::string path, Image image, int compressionLevel, ImageFileType type) {
    detail::initialiseOnce();
    if (type == ImageFileType::Auto)
        type = getImageFileType(path);
    const auto codecContext = openEncoder(type, image.size, compressionLevel);
    const auto packet = encode(image, *codecContext);
    writeFile(path, packet->data, static_cast<size_t>(packet->size));
}

} // namespace tio::ffmpeg
