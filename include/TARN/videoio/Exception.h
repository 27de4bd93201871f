#pragma once

#include <TARN/core/Exception.h>
#include <TARN/videoio/Export.h>

#include <string>

namespace tio::ffmpeg {

/// A call into FFmpeg failed. The text is FFmpeg's own, with what was being done where that helps
/// (for example the URL), and " @ " and the place of the check, except for file-system errors
/// (no such file, no permission, …), which carry no place. What the library diagnoses itself is
/// thrown as tio::Exception, the base of this class.
/// Thread rule: a value; copies may be used by other threads.
class TARN_VIDEOIO_API Exception : public tio::Exception {
public:
    using tio::Exception::Exception;
    Exception(const std::string& text, int ffmpegCode)
        : tio::Exception(text), errorCode(ffmpegCode) {}
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    ~Exception() override;

    /// FFmpeg's code, a negative number: the system's error number with its sign turned (-ENOENT
    /// for a file that is not there), or one of the AVERROR_ constants of libavutil/error.h. 0
    /// where FFmpeg gave none.
    [[nodiscard]] int code() const noexcept { return errorCode; }

    /// Whether a time limit of OpenOptions ended the call; code() is -ETIMEDOUT, as it is where
    /// the network itself gave up.
    [[nodiscard]] bool isTimeout() const noexcept;

    /// Whether OpenOptions::cancelToken ended the call; code() is AVERROR_EXIT.
    [[nodiscard]] bool isCancelled() const noexcept;

private:
    int errorCode = 0;
};

} // namespace tio::ffmpeg
