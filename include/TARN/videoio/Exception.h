#pragma once

#include <TARN/core/Exception.h>
#include <TARN/videoio/Export.h>

namespace tio::ffmpeg {

/// A call into FFmpeg failed. The text is FFmpeg's own, with what was being done where that helps
/// (for example the URL), and " @ " and the place of the check, except for file-system errors
/// (no such file, no permission, …), which carry no place. What the library diagnoses itself is
/// thrown as tio::Exception, the base of this class.
class TARN_VIDEOIO_API Exception : public tio::Exception {
public:
    using tio::Exception::Exception;
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    ~Exception() override;
};

} // namespace tio::ffmpeg
