#pragma once

#include "ffmpeg_compat.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace tio::ffmpeg::detail {

/// How much sound a reader of Matroska has to take off at the beginning. The file says so in an
/// element of the track, and its blocks stand that much later. Releases of FFmpeg differ in how
/// much of this their muxer does, and for which codecs: so it is tried out with one packet. Where
/// the element is missing, a name of the track holds its place while the file is written.
class MatroskaDelay {
public:
    /// Tries out what the muxer does with a stream, and prepares the stream.
    /// @returns 0, or FFmpeg's code
    [[nodiscard]] int prepare(AVStream& sound);

    /// Samples by which packets are to be written later, because the muxer does not do it.
    [[nodiscard]] int64_t shift() const noexcept { return missingShift; }

    /// The same in the first bytes of a file, on their way there.
    void fillIn(uint8_t* bytes, size_t count) const;

    /// Fills the place in the closed file.
    /// @returns 0, or the system's error as FFmpeg's code
    [[nodiscard]] int fill(const std::string& path) const;

private:
    int64_t missingShift = 0;
    int64_t nanoseconds = 0; ///< to be written; 0: nothing
};

/// Of side data that tells samples to leave out: two numbers of 32 bits, and two reasons.
constexpr size_t skipBytes = 10;

/// Has a packet of Matroska say that so many samples at its end are not to be heard.
void cutOffEnd(AVPacket& packet, int64_t samples);

} // namespace tio::ffmpeg::detail
