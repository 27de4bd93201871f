#include "base/Options.h"
#include "base/checks.h"
#include "base/initialise.h"
#include "ffmpeg_compat.h"
#include "picture/filter.h"
#include "picture/orientation.h"
#include "picture/swscale.h"

#include <TARN/imageio/ppm.h>
#include <TARN/videoio/ReadImage.h>
#include <TARN/videoio/Types.h>
#include <TARN/videoio/detail/Handles.h>

#include <fstream>
#include <new>
#include <utility>

namespace tio {

namespace {

using Image = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;
using namespace ffmpeg::detail;

enum class Orientation { AsStored, Upright };

constexpr Location at(int number) {
    return {"ReadImage", number};
}

InputContextHandle openInput(const std::string& path) {
    // Otherwise a file that is called a%03d.jpg would be taken for a sequence of files.
    Options options;
    options.set("pattern_type", "none");
    AVFormatContext* context = nullptr;
    const int opened = avformat_open_input(&context, path.c_str(), nullptr, options.address());
    checkResult(opened, at(44), path);
    return InputContextHandle(context);
}

/// Decodes the first picture of the first stream of an open file.
class FirstPicture {
public:
    FirstPicture(const std::string& filePath, AVFormatContext& opened)
        : path(filePath), input(opened), packet(av_packet_alloc()), decoded(av_frame_alloc()) {
        if (!packet || !decoded)
            throw std::bad_alloc();
        checkResult(avformat_find_stream_info(&input, nullptr), at(48));
        checkResult(ffmpeg::compat::restoreRotateTags(input), at(49));
        requirePictures();
        openCodec();
        decode();
    }

    [[nodiscard]] const AVStream& stream() const { return *input.streams[0]; }
    [[nodiscard]] AVFrame& frame() const { return *decoded; }

private:
    void requirePictures() const {
        const bool pictures =
            input.nb_streams > 0 && stream().codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        if (!pictures)
            failAssertion("The first stream of " + path + " holds no pictures", "pictures", at(52));
    }

    // The decoder learns size and format from the data itself, not from what was found out before.
    void openCodec() {
        const AVCodec* decoder = avcodec_find_decoder(stream().codecpar->codec_id);
        codec.reset(avcodec_alloc_context3(decoder));
        if (!codec)
            throw std::bad_alloc();
        checkResult(avcodec_open2(codec.get(), decoder, nullptr), at(58));
    }

    void decode() {
        while (true) {
            readPacket();
            sendPacket();
            const int result = avcodec_receive_frame(codec.get(), decoded.get());
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
                continue;
            checkResult(result, at(91));
            return;
        }
    }

    // The end of the file comes as a failure too: there was no picture before it.
    void readPacket() {
        do {
            av_packet_unref(packet.get());
            checkResult(av_read_frame(&input, packet.get()), at(70), path);
        } while (packet->stream_index != 0 || packet->size == 0);
    }

    // A decoder that is not ready gets the packet again, but not for ever.
    void sendPacket() {
        constexpr int mostRefusals = 100;
        int result = avcodec_send_packet(codec.get(), packet.get());
        for (int i = 0; i < mostRefusals && (result == AVERROR(EAGAIN) || result == AVERROR_EOF);
             ++i)
            result = avcodec_send_packet(codec.get(), packet.get());
        checkResult(result, at(81));
    }

    const std::string& path;
    AVFormatContext& input;
    PacketHandle packet;
    FrameHandle decoded;
    CodecContextHandle codec;
};

Image convert(AVFrame& frame) {
    SWScaleDecoder converter({frame.height, frame.width}, static_cast<AVPixelFormat>(frame.format),
                             ffmpeg::PixelFormat::RGB);
    return converter.convertFrame(&frame)->toRgb(Rational<1, int>(1, 1),
                                                 Resize::Algorithm::Bilinear);
}

// A stream that says how it is turned is believed; only pictures without that may be photos.
Image decode(const std::string& path, AVFormatContext& input, Orientation wanted) {
    const FirstPicture picture(path, input);
    AVFrame& frame = picture.frame();
    const int rotation = ffmpeg::getStreamRotation(&picture.stream());
    if (rotation != 0)
        makeRotationFilter(&picture.stream(), rotation)->filterFrame(&frame);
    if (rotation != 0 || wanted == Orientation::AsStored)
        return convert(frame);
    return turnUpright(convert(frame), orientationOf(frame));
}

Image readWithFfmpeg(const std::string& path, Orientation wanted) {
    initialiseOnce();
    const InputContextHandle input = openInput(path);
    try {
        return decode(path, *input, wanted);
    } catch (...) { // most of what FFmpeg says from here on names no file
        logFailure("Could not read an image from " + path);
        throw;
    }
}

Image read(const std::string& path, Orientation wanted) {
    if (ffmpeg::getImageFileType(path) != ffmpeg::ImageFileType::Ppm)
        return readWithFfmpeg(path, wanted);
    std::ifstream stream(path);
    return readPpm(stream);
}

} // namespace

Image readImage(std::string path) {
    return read(path, Orientation::AsStored);
}

Image readImageUpright(std::string path) {
    return read(path, Orientation::Upright);
}

Image ffmpeg::readImage(std::string path) {
    return tio::readImage(path);
}

} // namespace tio
