#pragma once

#include <TARN/videoio/Export.h>

#include <memory>

struct AVStream;

namespace tio::ffmpeg {

class FormatContext;

/// One stream of an input or an output; keeps its context alive.
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API Stream {
public:
    /// @param streamIndex  of a stream that the context has or will have: it is not checked
    /// @throws tio::Exception for a context that is null
    Stream(std::shared_ptr<FormatContext> context, int streamIndex);
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    virtual ~Stream();

    /// FFmpeg's stream, owned by the context: valid as long as that. An OutputStream has one from
    /// its first packet on, not before.
    [[nodiscard]] AVStream* getStream() noexcept;
    [[nodiscard]] const AVStream* getStream() const noexcept;

protected:
    std::shared_ptr<FormatContext> formatContext;
    int streamIndex;
};

} // namespace tio::ffmpeg
