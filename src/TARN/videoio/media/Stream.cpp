#include "base/checks.h"

#include <TARN/videoio/FormatContext.h>
#include <TARN/videoio/Stream.h>

#include <utility>

namespace tio::ffmpeg {

Stream::Stream(std::shared_ptr<FormatContext> context, int index)
    : formatContext(std::move(context)), streamIndex(index) {
    if (!formatContext)
        detail::failPlainly("A stream has no context");
}

Stream::~Stream() = default;

AVStream* Stream::getStream() noexcept {
    return formatContext->getStream(streamIndex);
}

const AVStream* Stream::getStream() const noexcept {
    return std::as_const(*formatContext).getStream(streamIndex);
}

} // namespace tio::ffmpeg
