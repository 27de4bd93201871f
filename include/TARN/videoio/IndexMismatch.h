#pragma once

#include <TARN/core/Exception.h>
#include <TARN/videoio/Export.h>

namespace tio::ffmpeg {

/// An index was given for a source that it is not the index of: for another clip, for another
/// stream, or for a clip that has been changed since.
/// Thread rule: a value; copies may be used by other threads.
class TARN_VIDEOIO_API IndexMismatch : public tio::Exception {
public:
    using tio::Exception::Exception;
    IndexMismatch(const IndexMismatch&) = default;
    IndexMismatch& operator=(const IndexMismatch&) = default;
    ~IndexMismatch() override;
};

} // namespace tio::ffmpeg
