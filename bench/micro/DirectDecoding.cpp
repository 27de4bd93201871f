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
    constexpr int alignment = 64;
    const int size = test::check(
        av_image_get_buffer_size(target, decoder.width, decoder.height, alignment), "size");
    buffer.resize(static_cast<size_t>(size) + alignment);
    test::check(av_image_fill_arrays(planes.data(), strides.data(), buffer.data(), target,
                                     decoder.width, decoder.height, alignment),
                "planes");
}

void Converter::convert(const AVFrame& frame) {
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, rows, planes.data(), strides.data());
}

} // namespace tio::bench
