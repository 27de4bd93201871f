#include "DirectDecoding.h"

#include <thread>

extern "C" {
#include <libavutil/imgutils.h>
}

namespace tio::bench {

test::CodecPointer openDecoder(const AVStream& stream) {
    const AVCodec* codec =
        test::checkFound(avcodec_find_decoder(stream.codecpar->codec_id), "decoder");
    test::CodecPointer decoder(test::checkFound(avcodec_alloc_context3(codec), "decoder context"));
    test::check(avcodec_parameters_to_context(decoder.get(), stream.codecpar), "parameters");
    decoder->thread_count = static_cast<int>(std::thread::hardware_concurrency());
    test::check(avcodec_open2(decoder.get(), codec, nullptr), "opening the decoder");
    return decoder;
}

Converter::Converter(const AVCodecContext& decoder, AVPixelFormat target)
    : rows(decoder.height),
      scaler(sws_getContext(decoder.width, decoder.height, decoder.pix_fmt, decoder.width,
                            decoder.height, target, SWS_BICUBIC, nullptr, nullptr, nullptr)) {
    prepareBuffer(target, decoder.width, decoder.height);
}

Converter::Converter(const AVCodecContext& decoder, AVPixelFormat target, int width, int height)
    : rows(decoder.height),
      scaler(sws_getContext(decoder.width, decoder.height, decoder.pix_fmt, width, height, target,
                            width == decoder.width ? SWS_BICUBIC : SWS_AREA, nullptr, nullptr,
                            nullptr)) {
    constexpr int whole = 1 << 16;
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(decoder.colorspace),
                             decoder.color_range == AVCOL_RANGE_JPEG ? 1 : 0,
                             sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, whole, whole);
    prepareBuffer(target, width, height);
}

void Converter::prepareBuffer(AVPixelFormat target, int width, int height) {
    constexpr int alignment = 64;
    const int size =
        test::check(av_image_get_buffer_size(target, width, height, alignment), "size");
    buffer.resize(static_cast<size_t>(size) + alignment);
    test::check(av_image_fill_arrays(planes.data(), strides.data(), buffer.data(), target, width,
                                     height, alignment),
                "planes");
}

void Converter::convert(const AVFrame& frame) {
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, rows, planes.data(), strides.data());
}

} // namespace tio::bench
