#pragma once

#include "support/Ffmpeg.h"

#include <string>

namespace tio::test {

/// Reads the packets of a file's best video stream with libavformat alone.
class VideoDemuxer {
public:
    /// @throws std::runtime_error when the file cannot be opened or has no video
    explicit VideoDemuxer(const std::string& path);

    /// Goes to the stream's next packet, of size 0 included.
    /// @returns false at the end, and when reading fails
    bool readPacket();

    /// Goes to the nearest place at or before a time in the stream's ticks.
    /// @returns false when the demuxer cannot
    bool seekToOrBefore(int64_t pts);

    [[nodiscard]] const AVPacket& packet() const noexcept { return *current; }
    [[nodiscard]] const AVStream& stream() const noexcept { return *input->streams[index]; }

private:
    InputPointer input;
    PacketPointer current;
    int index = -1;
};

} // namespace tio::test
