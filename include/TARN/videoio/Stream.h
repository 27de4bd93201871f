#pragma once

#include <TARN/videoio/Export.h>

#include <memory>

struct AVStream;

namespace tio::ffmpeg {

class FormatContext;

/// One stream of an input or an output; keeps its context alive.
class TARN_VIDEOIO_API Stream {
public:
    Stream(std::shared_ptr<FormatContext> context, int streamIndex);
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    virtual ~Stream();

    /// FFmpeg's stream, owned by the context.
    [[nodiscard]] AVStream* getStream();
    [[nodiscard]] const AVStream* getStream() const;

protected:
    std::shared_ptr<FormatContext> formatContext;
    int streamIndex;
};

} // namespace tio::ffmpeg
