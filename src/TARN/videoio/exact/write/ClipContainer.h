#pragma once

#include "ffmpeg_compat.h"

#include <string>

namespace tio::ffmpeg::detail {

/// A container that clips are written in.
struct ClipContainer {
    const char* extension; ///< of file names, with its dot
    const char* muxer;     ///< FFmpeg's name
    bool mp4;              ///< counts in ticks that can be chosen; turns pictures
    bool pictures;         ///< not for sound alone
    const char* codec;     ///< taken when none is asked for
    const char* audioCodec;

    /// Milliseconds, where ticks cannot be chosen; else 0.
    [[nodiscard]] int fixedScale() const;

    [[nodiscard]] bool isMatroska() const;

    [[nodiscard]] bool holds(AVCodecID id) const;
};

/// The container of a file's name, upper and lower case alike.
/// @throws ClipRefusal for an extension that none has
[[nodiscard]] const ClipContainer& containerOf(const std::string& path);

/// @param what  has to be held, in words
/// @throws ClipRefusal that lists the containers which can
void requireHolds(const ClipContainer& container, AVCodecID codec, const std::string& what,
                  const std::string& path);

} // namespace tio::ffmpeg::detail
