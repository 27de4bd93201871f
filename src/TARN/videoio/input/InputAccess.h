#pragma once

#include "ffmpeg_compat.h"
#include "input/InputWatch.h"

#include <TARN/videoio/InputFormatContext.h>

#include <memory>
#include <vector>

namespace tio::ffmpeg::detail {

/// What other classes of the library need of an input beyond its public interface.
struct InputAccess {
    [[nodiscard]] static AVFormatContext& contextOf(InputFormatContext& input) {
        return *input.formatContext;
    }

    /// Goes on to the next packet of any of these streams; false at the end and when reading fails.
    [[nodiscard]] static bool readNext(InputFormatContext& input, AVPacket* packet,
                                       const std::vector<int>& streams);

    /// The same source once more, from its start, with the options that it was opened with.
    /// @throws tio::ffmpeg::Exception as opening it does
    [[nodiscard]] static std::shared_ptr<InputFormatContext>
    reopen(const InputFormatContext& input) {
        if (input.watch)
            return std::make_shared<InputFormatContext>(input.getUrl(), input.watch->options);
        return std::make_shared<InputFormatContext>(input.getUrl());
    }
};

} // namespace tio::ffmpeg::detail
