#pragma once

#include "base/handles.h"
#include "exact/write/encode/PictureEncoder.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/ClipWriterOptions.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// Encodes blocks of any length.
class SoundEncoder {
public:
    /// @throws ClipRefusal for a rate or a number of channels that the codec cannot take
    SoundEncoder(const AVCodec& codec, const ClipWriterOptions& options, int channels,
                 std::string path);

    /// @param samples  finite; `count` times the channels
    /// @param sink     takes packets whose times are samples from the first one of all; those of
    ///                 the codec's run-in are negative
    void encode(const float* samples, std::size_t count, const PacketSink& sink);

    /// What the encoder still holds, the last samples included.
    void flush(const PacketSink& sink);

    [[nodiscard]] int channels() const noexcept { return channelsOfAll; }
    [[nodiscard]] int64_t samplesTaken() const noexcept { return taken; }

    /// Open encoder, for a stream's parameters. Those of FLAC are complete after flush().
    [[nodiscard]] const AVCodecContext& codec() const { return *context; }

private:
    void send(const float* samples, int count, const PacketSink& sink);
    void drain(const PacketSink& sink);
    bool takeHead(const AVPacket& packet);
    void fill(AVFrame& frame, const float* samples) const;

    std::string name;
    CodecContextHandle context;
    int channelsOfAll;
    int blockLength = 0;
    std::vector<float> rest;   ///< not yet a block
    std::vector<uint8_t> head; ///< of the whole sound, where its codec tells at the end
    int64_t taken = 0;
    int64_t sent = 0;
};

/// Refuses a rate that the codec cannot take, told with those that it can.
void requireRate(const AVCodec& codec, int rate, const std::string& path);

} // namespace tio::ffmpeg::detail
