#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavutil/rational.h>
}

struct AVCodecParameters;

namespace tio::test {

/// Options by name, for an encoder or a muxer; also stream metadata.
using Options = std::map<std::string, std::string>;

/// One compressed packet as plain values, so that a test can choose or change every one of them.
struct RawPacket {
    std::vector<uint8_t> data;
    int64_t pts = 0; ///< in the track's time base, AV_NOPTS_VALUE for none
    int64_t dts = 0;
    bool key = true;
    int64_t duration = 1;
};

/// One stream that is still to be written: what the codec needs to know, and the packets.
struct Track {
    std::shared_ptr<AVCodecParameters> parameters;
    AVRational timeBase{1, 1000};
    std::vector<RawPacket> packets; ///< in the order of the file
    Options metadata;
};

/// A video track without packets, for tests that need chosen times rather than pictures.
[[nodiscard]] Track bareVideoTrack(AVCodecID codec, int width, int height, AVRational timeBase);

/// Writes tracks into a new file, interleaved by decoding time. The muxer may choose another time
/// base; times are then rounded to it.
/// @param format  name of the muxer, such as "mp4" or "matroska"
/// @throws std::runtime_error when the muxer refuses, or does not know one of the options
void writePackets(const std::string& path, const std::string& format,
                  const std::vector<Track>& tracks, const Options& muxerOptions = {});

} // namespace tio::test
