#pragma once

#include "InputWatch.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/InputFormatContext.h>

#include <memory>

namespace tio::ffmpeg::detail {

/// What reading by packet number needs of an input beyond its public interface.
struct InputAccess {
    [[nodiscard]] static AVFormatContext& contextOf(InputFormatContext& input) {
        return *input.formatContext;
    }

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
