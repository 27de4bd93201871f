#pragma once

#include <TARN/videoio/Export.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace tio::ffmpeg {

/// Ends the waiting of an input from another thread. Copies are the same token: whoever wants to
/// cancel keeps one and gives another to OpenOptions.
/// Thread rule: any thread, at any time.
class CancelToken {
public:
    /// A token of its own, that nobody has cancelled.
    CancelToken() : flag(std::make_shared<std::atomic<bool>>(false)) {}

    /// For good: what uses this token stops as soon as it waits for the source.
    void cancel() const noexcept { flag->store(true); }

    [[nodiscard]] bool isCancelled() const noexcept { return flag->load(); }

private:
    std::shared_ptr<std::atomic<bool>> flag;
};

/// How a source is opened where the defaults do not do. The defaults here change nothing.
/// Thread rule: a value; an input copies the options that it is opened with.
///
/// @code
/// tio::ffmpeg::OpenOptions options;
/// options.openTimeout = std::chrono::seconds(5);
/// options.readTimeout = std::chrono::seconds(2);
/// auto input = std::make_shared<tio::ffmpeg::InputFormatContext>("rtsp://camera/1", options);
/// @endcode
struct OpenOptions {
    /// How long opening may take, the look at the streams included; 0 for as long as it takes.
    /// Looking up a host's name is the system's business and not covered.
    std::chrono::milliseconds openTimeout{0};

    /// How long one packet may take, or one seek, or closing; 0 for as long as it takes.
    std::chrono::milliseconds readTimeout{0};

    CancelToken cancelToken;

    /// How many bytes are looked at to learn what the streams are; 0 for FFmpeg's default (5 MB).
    int64_t probeSize = 0;

    /// FFmpeg's name of the demuxer, such as "h264" for a raw stream under any name; empty to find
    /// it out.
    std::string formatName;

    /// Further options of FFmpeg for this demuxer or its protocol, as `ffmpeg -h demuxer=NAME` and
    /// `ffmpeg -h protocol=NAME` list them. They win over those that the library sets for
    /// "rtsp://". A "resync_size" below 204 is refused: FFmpeg might search a transport stream for
    /// its next packet for ever.
    std::map<std::string, std::string> demuxerOptions;
};

/// Why an input gives no further packet.
/// Thread rule: a value.
struct EndReason {
    enum class Kind {
        None,        ///< it may have more
        EndOfStream, ///< its end was reached
        Error,       ///< reading failed
        Timeout,     ///< OpenOptions::readTimeout passed; a further read waits once more
        Cancelled,   ///< OpenOptions::cancelToken was cancelled
    };

    Kind kind = Kind::None;
    int code = 0;     ///< FFmpeg's, with Kind::Error
    std::string text; ///< FFmpeg's words for it, with Kind::Error
};

} // namespace tio::ffmpeg
