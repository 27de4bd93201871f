#include "support/Encoding.h"

#include "support/Dictionary.h"

namespace tio::test {

void openEncoder(AVCodecContext& encoder, const Options& options) {
    encoder.thread_count = 1;      // the same bytes on every machine
    encoder.log_level_offset = 16; // keeps the encoder's statistics out of the test output
    Dictionary dictionary(options);
    check(avcodec_open2(&encoder, encoder.codec, dictionary.get()),
          std::string("opening ") + encoder.codec->name);
    dictionary.checkAllTaken(encoder.codec->name);
}

void encodeFrame(AVCodecContext& encoder, const AVFrame* frame, std::vector<RawPacket>& packets) {
    check(avcodec_send_frame(&encoder, frame), "sending a frame to the encoder");
    PacketPointer packet(checkFound(av_packet_alloc(), "packet"));
    for (;;) {
        const int result = avcodec_receive_packet(&encoder, packet.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return;
        check(result, "encoding");
        RawPacket raw;
        raw.data.assign(packet->data, packet->data + packet->size);
        raw.pts = packet->pts;
        raw.dts = packet->dts;
        raw.key = (packet->flags & AV_PKT_FLAG_KEY) != 0;
        raw.duration = packet->duration;
        packets.push_back(std::move(raw));
        av_packet_unref(packet.get());
    }
}

Track trackOf(const AVCodecContext& encoder) {
    Track track;
    track.parameters.reset(checkFound(avcodec_parameters_alloc(), "parameters"), Close{});
    check(avcodec_parameters_from_context(track.parameters.get(), &encoder), "parameters");
    track.timeBase = encoder.time_base;
    return track;
}

} // namespace tio::test
