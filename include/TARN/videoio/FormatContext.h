#pragma once

#include <TARN/videoio/Export.h>

struct AVFormatContext;
struct AVStream;

namespace tio::ffmpeg {

/// What an opened input and an output file have in common: FFmpeg's format context and its streams.
/// Thread rule: one context and everything built on it is used by one thread at a time.
class TARN_VIDEOIO_API FormatContext {
public:
    FormatContext();
    FormatContext(const FormatContext&) = delete;
    FormatContext& operator=(const FormatContext&) = delete;
    virtual ~FormatContext();

    /// The stream of that index, which must exist: it is not checked. Owned by the context and
    /// valid as long as that.
    [[nodiscard]] AVStream* getStream(int index) noexcept;
    [[nodiscard]] const AVStream* getStream(int index) const noexcept;

protected:
    AVFormatContext* formatContext = nullptr; // opened, and closed, by the subclass
};

} // namespace tio::ffmpeg
