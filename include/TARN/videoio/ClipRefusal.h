#pragma once

#include <TARN/core/Exception.h>
#include <TARN/core/Rational.h>
#include <TARN/videoio/Export.h>

#include <cstdint>
#include <string>

namespace tio::ffmpeg {

/// A clip cannot be written as asked: an option, a picture, a block of sound or a time is not
/// possible. Nothing has changed; the next call may be a better one. Failures of FFmpeg and of the
/// system are tio::ffmpeg::Exception instead.
/// Thread rule: a value; copies may be used by other threads.
class TARN_VIDEOIO_API ClipRefusal : public tio::Exception {
public:
    using tio::Exception::Exception;
    ClipRefusal(const ClipRefusal&) = default;
    ClipRefusal& operator=(const ClipRefusal&) = default;
    ~ClipRefusal() override;
};

/// A time that the clip cannot hold, or that does not rise.
class TARN_VIDEOIO_API TimeRefusal : public ClipRefusal {
public:
    /// @param possible  seconds, as in nearest()
    TimeRefusal(const std::string& text, tio::Rational<1, int64_t> possible);
    TimeRefusal(const TimeRefusal&) = default;
    TimeRefusal& operator=(const TimeRefusal&) = default;
    ~TimeRefusal() override;

    /// The nearest time that the clip can hold, in seconds, counted as the refused one was.
    [[nodiscard]] tio::Rational<1, int64_t> nearest() const noexcept { return possible; }

private:
    tio::Rational<1, int64_t> possible;
};

} // namespace tio::ffmpeg
