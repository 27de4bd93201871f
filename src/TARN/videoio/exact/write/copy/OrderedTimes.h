#pragma once

#include "exact/index/IndexData.h"
#include "ffmpeg_compat.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// Times for the packets of a stream whose container tells none, or not all: those of an index,
/// which knows the picture that each packet gives.
class OrderedTimes {
public:
    explicit OrderedTimes(const IndexData& index);

    /// Gives a packet its times.
    /// @param number  of the packet, in the order of the stream
    /// @returns false for a packet that gives no picture and has no room for a time of its own
    [[nodiscard]] bool giveTimes(AVPacket& packet, std::size_t number) const;

private:
    struct Times {
        int64_t pts;
        int64_t dts;
        int64_t duration;
    };

    void giveDecodingTimes(const std::vector<int64_t>& shown, int64_t step);

    std::vector<Times> times; ///< by packet
};

} // namespace tio::ffmpeg::detail
