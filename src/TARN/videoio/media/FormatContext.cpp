#include "base/initialise.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/FormatContext.h>

namespace tio::ffmpeg {

FormatContext::FormatContext() {
    detail::initialiseOnce();
}

FormatContext::~FormatContext() = default;

AVStream* FormatContext::getStream(int index) noexcept {
    return formatContext->streams[index];
}

const AVStream* FormatContext::getStream(int index) const noexcept {
    return formatContext->streams[index];
}

} // namespace tio::ffmpeg
