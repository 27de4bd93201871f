#pragma once

#include "ffmpeg_compat.h"
#include "input/OpenInput.h"

#include <TARN/videoio/InputFormatContext.h>

#include <cstdint>
#include <vector>

namespace tio::ffmpeg::detail {

/// What other classes of the library need of an input beyond its public interface.
struct InputAccess {
    [[nodiscard]] static AVFormatContext& contextOf(InputFormatContext& input) {
        return *input.formatContext;
    }

    /// Goes on to the next packet of any of these streams; false at the end and when reading fails.
    [[nodiscard]] static bool readNext(InputFormatContext& input, AVPacket* packet,
                                       const std::vector<int>& streams) {
        return input.readNext(packet, streams.data(), streams.data() + streams.size());
    }

    /// What it was opened from, to open it once more.
    [[nodiscard]] static const Source& sourceOf(const InputFormatContext& input) {
        return input.opened->source();
    }

    /// As OpenInput::bytes().
    [[nodiscard]] static ByteChannel* channelOf(const InputFormatContext& input) {
        return input.opened->bytes();
    }

    /// As OpenInput::seek().
    /// @throws tio::ffmpeg::Exception what a stream of the caller's does wrong
    [[nodiscard]] static int seek(InputFormatContext& input, int stream, int64_t target,
                                  int flags) {
        const int sought = input.opened->seek(stream, target, flags);
        input.opened->rethrowFailure();
        return sought;
    }

    /// As OpenInput::reasonFor().
    [[nodiscard]] static EndReason reasonFor(const InputFormatContext& input, int result) {
        return input.opened->reasonFor(result);
    }

    /// Whether the packets ended before the source did.
    [[nodiscard]] static bool wasCutShort(const InputFormatContext& input) {
        return input.opened->wasCutShort();
    }
};

} // namespace tio::ffmpeg::detail
