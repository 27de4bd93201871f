// Decodes a clip from start to end with libavformat and libavcodec alone and prints the CRC-32 of
// every picture as it is stored:
//   truth CLIP THREADS

#include "picture/planes.h"

#include <cstdio>
#include <cstdlib>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

void printPictures(AVCodecContext* decoder, AVFrame* frame) {
    for (int failures = 0; failures < 64;) {
        const int result = avcodec_receive_frame(decoder, frame);
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return;
        if (result < 0) {
            ++failures;
            continue;
        }
        std::printf("%u\n", crcOfPlanes(frame->data, frame->linesize,
                                        static_cast<AVPixelFormat>(frame->format), frame->width,
                                        frame->height));
    }
}

} // namespace

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext* input = nullptr;
    if (argc != 3 || avformat_open_input(&input, argv[1], nullptr, nullptr) < 0 ||
        avformat_find_stream_info(input, nullptr) < 0)
        return 1;
    const int index = av_find_best_stream(input, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0)
        return 1;
    const AVStream* stream = input->streams[index];
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    AVCodecContext* decoder = avcodec_alloc_context3(codec);
    avcodec_parameters_to_context(decoder, stream->codecpar);
    decoder->pkt_timebase = stream->time_base;
    decoder->thread_count = std::atoi(argv[2]);
    if (avcodec_open2(decoder, codec, nullptr) < 0)
        return 1;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    while (av_read_frame(input, packet) >= 0) {
        if (packet->stream_index == index && packet->size > 0) {
            avcodec_send_packet(decoder, packet);
            printPictures(decoder, frame);
        }
        av_packet_unref(packet);
    }
    avcodec_send_packet(decoder, nullptr);
    printPictures(decoder, frame);
}
