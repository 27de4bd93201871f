#pragma once

#include "Survey.h"
#include "support/Ffmpeg.h"

#include <TARN/videoio/Packet.h>

#include <cstdint>
#include <string>
#include <vector>

/// @file
/// What FFmpeg says of a file when it is called directly, beyond the oracle's pictures.
/// @throws std::runtime_error when FFmpeg fails

namespace tio::survey {

/// A non-empty packet; the times are ticks of its stream's time base.
struct DirectPacket {
    int stream;
    int64_t pts;
    int64_t dts;
    int64_t duration;
    int flags; ///< AV_PKT_FLAG_…
    int size;
    uint64_t hash; ///< of its bytes
};

[[nodiscard]] std::string lineOf(const DirectPacket& packet);
[[nodiscard]] DirectPacket describe(const AVPacket& packet);

/// Opens a file and finds out what its streams are.
[[nodiscard]] test::InputPointer openDirectly(const std::string& path);

/// The stream that FFmpeg rates best of its kind.
[[nodiscard]] int bestStream(AVFormatContext& input, AVMediaType type);

/// All packets of one stream from where the input stands.
[[nodiscard]] std::vector<DirectPacket> packetsOf(AVFormatContext& input, int stream);

/// Goes to before all times, as the making of an index does.
void rewind(AVFormatContext& input, int stream);

/// A line for every block of the best stream of sound: time, size, rate and samples.
void tellSound(const std::string& path, Facts& facts);

/// How both sides write such a block.
[[nodiscard]] std::string soundLine(const std::string& time, int rows, int columns, int rate,
                                    const float* samples);

/// A time as a reduced fraction of seconds.
[[nodiscard]] std::string timeText(int64_t ticks, AVRational timeBase);
[[nodiscard]] std::string timeText(const ffmpeg::Rational& time);

} // namespace tio::survey
