#include "base/checks.h"
#include "base/handles.h"
#include "base/initialise.h"
#include "ffmpeg_compat.h"
#include "input/ByteChannel.h"
#include "input/OpenInput.h"
#include "picture/filter.h"
#include "picture/orientation.h"
#include "picture/swscale.h"

#include <TARN/imageio/ppm.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/ReadImage.h>
#include <TARN/videoio/Types.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <istream>
#include <new>
#include <streambuf>
#include <string>
#include <system_error>

namespace tio {

namespace {

using Orientation = ffmpeg::ImageOrientation;
using ffmpeg::Source;
using namespace ffmpeg::detail;

constexpr Places at("ReadImage");

/// Decodes the first picture of the first stream of an open file.
class FirstPicture {
public:
    explicit FirstPicture(OpenInput& opened)
        : input(opened), packet(av_packet_alloc()), decoded(av_frame_alloc()) {
        if (!packet || !decoded)
            throw std::bad_alloc();
        requirePictures();
        openCodec();
        decode();
    }

    [[nodiscard]] const AVStream& stream() const { return *input.context()->streams[0]; }
    [[nodiscard]] AVFrame& frame() const { return *decoded; }

private:
    void requirePictures() const {
        const bool pictures =
            input.context()->nb_streams > 0 && stream().codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        if (!pictures)
            failAssertion("The first stream of " + input.source().name() + " holds no pictures",
                          "pictures", at(52));
    }

    // The decoder learns size and format from the data itself, not from what was found out before.
    void openCodec() {
        const AVCodec* decoder = avcodec_find_decoder(stream().codecpar->codec_id);
        codec.reset(avcodec_alloc_context3(decoder));
        if (!codec)
            throw std::bad_alloc();
        input.check(avcodec_open2(codec.get(), decoder, nullptr), 58);
    }

    void decode() {
        while (true) {
            readPacket();
            sendPacket();
            const int result = avcodec_receive_frame(codec.get(), decoded.get());
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
                continue;
            input.check(result, 91);
            return;
        }
    }

    // The end of the file comes as a failure too: there was no picture before it.
    void readPacket() {
        input.startClock();
        do {
            av_packet_unref(packet.get());
            const int result = input.readPacket(packet.get());
            input.rethrowFailure();
            checkResult(result, at(70), input.source().name());
        } while (packet->stream_index != 0 || packet->size == 0);
    }

    // A decoder that is not ready gets the packet again, but not for ever.
    void sendPacket() {
        constexpr int mostRefusals = 100;
        int result = avcodec_send_packet(codec.get(), packet.get());
        for (int i = 0; i < mostRefusals && (result == AVERROR(EAGAIN) || result == AVERROR_EOF);
             ++i)
            result = avcodec_send_packet(codec.get(), packet.get());
        input.check(result, 81);
    }

    OpenInput& input;
    PacketHandle packet;
    FrameHandle decoded;
    CodecContextHandle codec;
};

RgbImage convert(AVFrame& frame) {
    SWScaleDecoder converter({frame.height, frame.width}, static_cast<AVPixelFormat>(frame.format),
                             ffmpeg::PixelFormat::RGB);
    return converter.convertFrame(&frame)->toRgb(Rational<1, int>(1, 1),
                                                 Resize::Algorithm::Bilinear);
}

// A stream that says how it is turned is believed; only pictures without that may be photos.
RgbImage decode(OpenInput& input, Orientation wanted) {
    const FirstPicture picture(input);
    AVFrame& frame = picture.frame();
    const int rotation = ffmpeg::getStreamRotation(&picture.stream());
    if (rotation != 0)
        makeRotationFilter(&picture.stream(), rotation)->filterFrame(&frame);
    if (rotation != 0 || wanted == Orientation::AsStored)
        return convert(frame);
    return turnUpright(convert(frame), orientationOf(frame));
}

RgbImage readWithFfmpeg(OpenInput&& input, Orientation wanted) {
    initialiseOnce();
    input.open();
    input.findStreams();
    input.restoreTags();
    return decode(input, wanted);
}

RgbImage read(const std::string& path, Orientation wanted) {
    if (ffmpeg::getImageFileType(path) != ffmpeg::ImageFileType::Ppm)
        return readWithFfmpeg({Source(path), OpenInput::image, OpenInput::Watching::No}, wanted);
    std::ifstream stream(path);
    return readPpm(stream);
}

/// The bytes of a channel for a std::istream.
class ChannelBuffer : public std::streambuf {
public:
    explicit ChannelBuffer(ByteChannel& from) : channel(from) {}

protected:
    int_type underflow() override {
        const int got = avio_read(channel.io(), bytes.data(), static_cast<int>(bytes.size()));
        if (got <= 0)
            return traits_type::eof();
        char* first = reinterpret_cast<char*>(bytes.data());
        setg(first, first, first + got);
        return traits_type::to_int_type(*first);
    }

private:
    ByteChannel& channel;
    std::array<unsigned char, 4096> bytes{};
};

bool beginsAsPpm(std::istream& stream) {
    return stream.get() == 'P' && (stream.peek() == '3' || stream.peek() == '6');
}

/// Whether a file is one of PPM; not of what can be read once only.
bool isPpmFile(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        return false;
    std::ifstream stream(path, std::ios::binary);
    return beginsAsPpm(stream);
}

/// Calls `use` with the bytes of memory or a stream.
template <typename Use>
auto withBytes(const Source& source, Use use) {
    InputWatch watch(source.options());
    watch.allow(source.options().openTimeout);
    ByteChannel channel(source, watch);
    ChannelBuffer buffer(channel);
    std::istream stream(&buffer);
    try {
        auto result = use(stream);
        channel.rethrowFailure();
        return result;
    } catch (const Exception&) {
        channel.rethrowFailure(); // which is the reason
        throw;
    }
}

RgbImage parsePpm(const Source& source) {
    if (source.kind() != Source::Kind::Url)
        return withBytes(source, [](std::istream& stream) { return readPpm(stream); });
    std::ifstream stream(source.name(), std::ios::binary);
    return readPpm(stream);
}

// The reader of PPM images knows no names.
RgbImage readPpmFrom(const Source& source) {
    try {
        return parsePpm(source);
    } catch (const ffmpeg::Exception&) {
        throw; // of the stream, named already
    } catch (const Exception& failure) {
        failPlainly(std::string(failure.what()) + ": " + source.name());
    }
}

bool isPpm(const Source& source) {
    return source.kind() == Source::Kind::Url ? isPpmFile(source.name())
                                              : withBytes(source, beginsAsPpm);
}

} // namespace

RgbImage readImage(std::string path) {
    return read(path, Orientation::AsStored);
}

RgbImage readImageUpright(std::string path) {
    return read(path, Orientation::Upright);
}

RgbImage ffmpeg::readImage(std::string path) {
    return tio::readImage(path);
}

RgbImage ffmpeg::readImageFrom(const Source& source, ImageOrientation orientation) {
    if (isPpm(source))
        return readPpmFrom(source);
    return readWithFfmpeg({source, OpenInput::imageOfSource, OpenInput::Watching::Yes},
                          orientation);
}

} // namespace tio
