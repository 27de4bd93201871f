#include "ffmpeg_compat.h"

#include <TARN/videoio/Exception.h>

#include <cerrno>

namespace tio::ffmpeg {

// Out of line so that the class's type information lives in this library alone and handlers in
// other libraries recognise it.
Exception::~Exception() = default;

bool Exception::isTimeout() const noexcept {
    return errorCode == AVERROR(ETIMEDOUT);
}

bool Exception::isCancelled() const noexcept {
    return errorCode == AVERROR_EXIT;
}

} // namespace tio::ffmpeg
