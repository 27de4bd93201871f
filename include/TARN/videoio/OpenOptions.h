#pragma once

#include <TARN/videoio/Export.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace tio::ffmpeg {

/// Ends the waiting of an input, and reading that takes long: from another thread, or by a question
/// that is put to the caller's own code now and then, for callers that notice an interruption in no
/// other way. Copies are the same token: whoever wants to cancel keeps one and gives another
/// to OpenOptions.
///
/// The token is asked while a source is waited for, and before every packet that is read: so it
/// ends the making of an index, run-ins and long ranges as well, with an Exception that says so
/// (Exception::isCancelled()).
/// Thread rule: any thread, at any time.
class TARN_VIDEOIO_API CancelToken {
public:
    /// Tells whether to stop. What it throws counts as yes, and is lost.
    using Poll = std::function<bool()>;

    /// A token of its own, that nobody has cancelled.
    CancelToken();

    /// A token that also asks the caller: when it is asked itself, but no more than once in 50 ms,
    /// and nothing but the time is looked at in between. A yes ends the call that it was asked for,
    /// and that one alone: what was stopped may be used again.
    ///
    /// Thread rule: `poll` is called in the thread that reads, for some protocols also in one of
    /// FFmpeg's own; never in two at once. It must not use what is being read.
    /// @throws tio::Exception when it is empty
    explicit CancelToken(Poll poll);

    /// For good: what uses this token stops as soon as it waits for the source.
    void cancel() const noexcept;

    /// Whether to stop: after cancel(), and when the caller says so.
    [[nodiscard]] bool isCancelled() const noexcept;

private:
    struct State;
    std::shared_ptr<State> state; // never null
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
