#include "FfmpegReader.h"

#include "media/Demuxing.h"

#include <array>
#include <memory>
#include <thread>
#include <vector>

extern "C" {
#include <libavutil/imgutils.h>
}

namespace tio::bench {

namespace {

test::CodecPointer openDecoder(const AVStream& stream) {
    const AVCodec* codec =
        test::checkFound(avcodec_find_decoder(stream.codecpar->codec_id), "decoder");
    test::CodecPointer decoder(test::checkFound(avcodec_alloc_context3(codec), "decoder context"));
    test::check(avcodec_parameters_to_context(decoder.get(), stream.codecpar), "parameters");
    decoder->thread_count = static_cast<int>(std::thread::hardware_concurrency());
    test::check(avcodec_open2(decoder.get(), codec, nullptr), "opening the decoder");
    return decoder;
}

/// Converts into one buffer, over and over.
class Converter {
public:
    Converter(int width, int height, AVPixelFormat source, AVPixelFormat target)
        : rows(height),
          scaler(sws_getContext(width, height, source, width, height, target, SWS_BICUBIC, nullptr,
                                nullptr, nullptr)) {
        constexpr int alignment = 64;
        const int size =
            test::check(av_image_get_buffer_size(target, width, height, alignment), "picture size");
        buffer.resize(static_cast<size_t>(size) + alignment);
        test::check(av_image_fill_arrays(planes.data(), strides.data(), buffer.data(), target,
                                         width, height, alignment),
                    "planes");
    }

    void convert(const AVFrame& frame) {
        sws_scale(scaler.get(), frame.data, frame.linesize, 0, rows, planes.data(), strides.data());
    }

private:
    int rows;
    test::ScalerPointer scaler;
    std::vector<uint8_t> buffer;
    std::array<uint8_t*, 4> planes{};
    std::array<int, 4> strides{};
};

} // namespace

int64_t readAllByFfmpeg(const std::string& path, int format) {
    test::VideoDemuxer demuxer(path);
    const auto decoder = openDecoder(demuxer.stream());
    const test::FramePointer frame(test::checkFound(av_frame_alloc(), "frame"));
    Converter converter(decoder->width, decoder->height, decoder->pix_fmt,
                        static_cast<AVPixelFormat>(format));
    int64_t count = 0;
    bool more = true;
    while (more) {
        more = demuxer.readPacket();
        avcodec_send_packet(decoder.get(), more ? &demuxer.packet() : nullptr);
        for (; avcodec_receive_frame(decoder.get(), frame.get()) == 0; ++count)
            converter.convert(*frame);
    }
    return count;
}

} // namespace tio::bench
