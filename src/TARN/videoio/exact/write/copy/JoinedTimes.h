#pragma once

#include "exact/write/fractions.h"
#include "ffmpeg_compat.h"

#include <cstddef>
#include <vector>

namespace tio::ffmpeg::detail {

/// The times of a source that may start over, as those of transport streams that were joined: each
/// part follows the one before. All streams of the source share one object, since each meets a
/// joint at a packet of its own.
class JoinedTimes {
public:
    /// Where one stream stands.
    struct Place {
        std::size_t part = 0;
        int64_t lastDts = AV_NOPTS_VALUE; ///< as the source has it
        int64_t end = 0;                  ///< of the last packet, moved
    };

    /// Moves the packet's times.
    /// @param base  seconds per tick
    void move(AVPacket& packet, AVRational base, Place& place);

private:
    std::vector<Fraction> shifts{Fraction(0)}; ///< seconds, by part
};

} // namespace tio::ffmpeg::detail
