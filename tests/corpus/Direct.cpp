#include "Direct.h"

#include "support/Oracle.h"

namespace tio::survey {

std::string lineOf(const DirectPacket& packet) {
    return "pts " + std::to_string(packet.pts) + ", dts " + std::to_string(packet.dts) +
           ", duration " + std::to_string(packet.duration) + ", flags " +
           std::to_string(packet.flags) + ", " + std::to_string(packet.size) + " bytes " +
           std::to_string(packet.hash);
}

DirectPacket describe(const AVPacket& packet) {
    return {packet.stream_index,
            packet.pts,
            packet.dts,
            packet.duration,
            packet.flags,
            packet.size,
            test::hashOf(packet.data, static_cast<std::size_t>(packet.size))};
}

test::InputPointer openDirectly(const std::string& path) {
    AVFormatContext* opened = nullptr;
    test::check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), "opening");
    test::InputPointer input(opened);
    test::check(avformat_find_stream_info(opened, nullptr), "stream info");
    return input;
}

int bestStream(AVFormatContext& input, AVMediaType type) {
    return test::check(av_find_best_stream(&input, type, -1, -1, nullptr, 0), "best stream");
}

std::vector<DirectPacket> packetsOf(AVFormatContext& input, int stream) {
    const test::PacketPointer packet(test::checkFound(av_packet_alloc(), "packet"));
    std::vector<DirectPacket> packets;
    while (av_read_frame(&input, packet.get()) >= 0) {
        if (packet->stream_index == stream && packet->size != 0)
            packets.push_back(describe(*packet));
        av_packet_unref(packet.get());
    }
    return packets;
}

void rewind(AVFormatContext& input, int stream) {
    constexpr int64_t beforeAllTimes = -9223372036854;
    const int flags = AVSEEK_FLAG_BACKWARD | (input.iformat->flags & AVFMT_SEEK_TO_PTS);
    test::check(av_seek_frame(&input, stream, beforeAllTimes, flags), "rewinding");
}

std::string timeText(int64_t ticks, AVRational timeBase) {
    return timeText(ffmpeg::Rational(ticks, 1) * ffmpeg::Rational(timeBase.num, timeBase.den));
}

std::string timeText(const ffmpeg::Rational& time) {
    return std::to_string(time.numerator) + "/" + std::to_string(time.denominator);
}

} // namespace tio::survey
