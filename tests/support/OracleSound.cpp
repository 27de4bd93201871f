#include "ffmpeg_compat.h"
#include "support/Ffmpeg.h"
#include "support/SoundMaker.h"

namespace tio::test {

namespace {

float toFloat(const uint8_t* bytes, AVSampleFormat format) {
    switch (format) {
    case AV_SAMPLE_FMT_U8:
        return static_cast<float>(*bytes - 128) / 128;
    case AV_SAMPLE_FMT_S16:
        return static_cast<float>(*reinterpret_cast<const int16_t*>(bytes)) / 32768;
    case AV_SAMPLE_FMT_S32:
        return static_cast<float>(*reinterpret_cast<const int32_t*>(bytes)) / 2147483648.0F;
    case AV_SAMPLE_FMT_S64:
        return static_cast<float>(*reinterpret_cast<const int64_t*>(bytes)) /
               9223372036854775808.0F;
    case AV_SAMPLE_FMT_FLT:
        return *reinterpret_cast<const float*>(bytes);
    case AV_SAMPLE_FMT_DBL:
        return static_cast<float>(*reinterpret_cast<const double*>(bytes));
    default:
        throw std::runtime_error("test media: a sample format that is not expected");
    }
}

void addFrame(const AVFrame& frame, const AVStream& stream, OracleSound& sound) {
    const int channels = ffmpeg::compat::channelCount(frame);
    if (sound.channels == 0) {
        sound.channels = channels;
        sound.rate = frame.sample_rate;
        sound.timed = frame.pts != AV_NOPTS_VALUE;
        sound.start = static_cast<double>(frame.pts) * av_q2d(stream.time_base);
    }
    if (sound.changesAt < 0 && (channels != sound.channels || frame.sample_rate != sound.rate))
        sound.changesAt = sound.count();
    if (sound.changesAt >= 0)
        return;
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const bool planar = av_sample_fmt_is_planar(format) != 0;
    const int bytes = av_get_bytes_per_sample(format);
    for (int sample = 0; sample < frame.nb_samples; ++sample)
        for (int channel = 0; channel < channels; ++channel) {
            const uint8_t* at = planar ? frame.extended_data[channel] + sample * bytes
                                       : frame.extended_data[0] +
                                             (std::ptrdiff_t{sample} * channels + channel) * bytes;
            sound.samples.push_back(toFloat(at, av_get_packed_sample_fmt(format)));
        }
}

InputPointer openFile(const std::string& path) {
    AVFormatContext* opened = nullptr;
    check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), "opening " + path);
    InputPointer input(opened);
    check(avformat_find_stream_info(input.get(), nullptr), "stream info of " + path);
    return input;
}

CodecPointer openDecoder(const AVStream& stream) {
    const AVCodec* decoder = checkFound(avcodec_find_decoder(stream.codecpar->codec_id), "decoder");
    CodecPointer codec(checkFound(avcodec_alloc_context3(decoder), "decoder"));
    check(avcodec_parameters_to_context(codec.get(), stream.codecpar), "parameters");
    codec->pkt_timebase = stream.time_base;
    check(avcodec_open2(codec.get(), decoder, nullptr), "opening the decoder");
    return codec;
}

} // namespace

OracleSound oracleSound(const std::string& path) {
    InputPointer input = openFile(path);
    const int index =
        check(av_find_best_stream(input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0),
              "sound of " + path);
    const AVStream& stream = *input->streams[index];
    CodecPointer codec = openDecoder(stream);
    PacketPointer packet(checkFound(av_packet_alloc(), "packet"));
    FramePointer frame(checkFound(av_frame_alloc(), "frame"));
    OracleSound sound;
    const auto drain = [&] {
        while (avcodec_receive_frame(codec.get(), frame.get()) >= 0)
            addFrame(*frame, stream, sound);
    };
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == index && packet->size > 0) {
            avcodec_send_packet(codec.get(), packet.get()); // what is damaged is passed over
            drain();
        }
        av_packet_unref(packet.get());
    }
    avcodec_send_packet(codec.get(), nullptr);
    drain();
    return sound;
}

} // namespace tio::test
