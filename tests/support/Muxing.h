#pragma once

#include "ffmpeg_compat.h"
#include "support/BareObjects.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Track.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// @file
/// Codec parameters and packets for the muxer, made without an encoder, and a look at what the
/// muxer is given.

namespace tio::test {

/// FFmpeg's words for a result.
inline std::string ffmpegText(int code) {
    char text[1024] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

/// How a check of the library names its place.
inline std::string placeText(const std::string& file, int number) {
    return R"( @ ..\src\TARN\videoio\)" + file + ":" + std::to_string(number);
}

/// What the library itself said, without FFmpeg's lines.
inline std::vector<LogLine> ownLines(const LogCapture& log) {
    std::vector<LogLine> own;
    for (const LogLine& line : log.lines()) {
        if (line.logger == "root")
            own.push_back(line);
    }
    return own;
}

using Parameters = std::shared_ptr<AVCodecParameters>;

/// MPEG-4 part 2, which MP4 takes without any bytes of its own in the parameters.
inline Parameters videoParameters(int width = 96, int height = 64) {
    return bareVideoTrack(AV_CODEC_ID_MPEG4, width, height, {1, 25}).parameters;
}

inline Parameters audioParameters(int sampleRate = 48000) {
    Parameters parameters(checkFound(avcodec_parameters_alloc(), "parameters"), Close{});
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = AV_CODEC_ID_AAC;
    parameters->sample_rate = sampleRate;
    parameters->frame_size = 1024;
    ffmpeg::compat::setChannelMask(*parameters, AV_CH_LAYOUT_MONO);
    return parameters;
}

/// Subtitles: neither video nor audio.
inline Parameters textParameters() {
    Parameters parameters(checkFound(avcodec_parameters_alloc(), "parameters"), Close{});
    parameters->codec_type = AVMEDIA_TYPE_SUBTITLE;
    parameters->codec_id = AV_CODEC_ID_MOV_TEXT;
    return parameters;
}

/// A packet as the muxer was given it. The mark is the first byte of its payload.
struct MuxedPacket {
    int stream;
    int mark;
    int64_t pts;
    int64_t dts;
    int64_t duration;
};

/// Notes every packet that the muxer is given and, as the test wants it, passes it on or swallows
/// it. Lives within an Interception.
class MuxerRecord {
public:
    enum class Then { Swallow, PassOn };

    explicit MuxerRecord(Then then = Then::Swallow) {
        calls().av_interleaved_write_frame.instead = [this, then](AVFormatContext* context,
                                                                  AVPacket* packet) {
            packets.push_back({packet->stream_index, packet->size > 0 ? packet->data[0] : -1,
                               packet->pts, packet->dts, packet->duration});
            if (then == Then::PassOn)
                return real::writeInterleaved(context, packet);
            av_packet_unref(packet);
            return 0;
        };
    }
    MuxerRecord(const MuxerRecord&) = delete;
    MuxerRecord& operator=(const MuxerRecord&) = delete;
    ~MuxerRecord() { calls().av_interleaved_write_frame.instead = nullptr; }

    /// One part of every packet, in order.
    template <typename Part>
    [[nodiscard]] std::vector<Part> all(Part MuxedPacket::*part) const {
        std::vector<Part> values;
        for (const MuxedPacket& packet : packets)
            values.push_back(packet.*part);
        return values;
    }

    [[nodiscard]] std::vector<int> marks() const { return all(&MuxedPacket::mark); }
    [[nodiscard]] std::vector<int64_t> pts() const { return all(&MuxedPacket::pts); }
    [[nodiscard]] std::vector<int64_t> dts() const { return all(&MuxedPacket::dts); }

    std::vector<MuxedPacket> packets;
};

} // namespace tio::test
