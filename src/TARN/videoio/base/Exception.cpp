#include <TARN/videoio/Exception.h>

namespace tio::ffmpeg {

// Out of line so that the class's type information lives in this library alone and handlers in
// other libraries recognise it.
Exception::~Exception() = default;

} // namespace tio::ffmpeg
