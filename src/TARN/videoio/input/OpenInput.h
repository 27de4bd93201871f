#pragma once

#include "base/handles.h"
#include "ffmpeg_compat.h"
#include "input/ByteChannel.h"
#include "input/InputWatch.h"

#include <TARN/videoio/Source.h>

#include <cstdint>
#include <memory>

namespace tio::ffmpeg::detail {

/// A source while it is open: FFmpeg's context, the watch over its waiting, and the stream that its
/// bytes come from. All that is read from a source is read through one of these.
class OpenInput {
public:
    /// How a kind of input is opened, and the numbers of its checks.
    struct Manner {
        const char* file; ///< of the locations
        int opening;
        int streams;
        int tags;
        bool namesAlways;   ///< whether the name goes into every message, or only that of opening
        const char* option; ///< one that goes along without being asked for, null for none
        const char* value;
    };
    static constexpr Manner clip{"InputFormatContext", 60, 65, 70, true, nullptr, nullptr};
    // Otherwise a file that is called a%03d.jpg would be taken for a sequence of files.
    static constexpr Manner image{"ReadImage", 44, 48, 49, false, "pattern_type", "none"};
    static constexpr Manner imageOfSource{"ReadImage", 44, 48, 49, true, "pattern_type", "none"};

    /// Whether there are limits to keep to; without a watch FFmpeg makes the context by itself.
    enum class Watching { No, Yes };

    /// Opens nothing yet. A source other than a URL is always watched.
    OpenInput(const Source& source, const Manner& manner, Watching watching);
    OpenInput(const OpenInput&) = delete;
    OpenInput& operator=(const OpenInput&) = delete;
    ~OpenInput();

    /// The steps of opening.
    /// @throws as InputFormatContext does
    void open();
    void findStreams();
    void restoreTags();

    /// Throws the failure of a later step, or what caused it, in the same way.
    void check(int result, int number) const { check(result, number, manner.namesAlways); }

    /// Gives up the context, which stays open.
    void letGo() noexcept { static_cast<void>(input.release()); }

    [[nodiscard]] AVFormatContext* context() const noexcept { return input.get(); }
    [[nodiscard]] const Source& source() const noexcept { return origin; }

    /// What memory and streams are read by; null for a URL.
    [[nodiscard]] ByteChannel* bytes() const noexcept { return channel.get(); }

    /// Starts the clock for one packet or one seek.
    void startClock() noexcept;

    /// As av_read_frame(), but limits and failures of the stream end it too; `packet` is blank
    /// after a failure.
    [[nodiscard]] int readPacket(AVPacket* packet);

    /// As av_seek_frame(), with a clock of its own. A stream that has failed is asked again.
    [[nodiscard]] int seek(int streamIndex, int64_t timestamp, int flags);

    /// Why readPacket() or seek() gave this result.
    [[nodiscard]] EndReason reasonFor(int result) const;

    /// Whether the source did not end by itself: there was a limit, or bytes could not be read.
    [[nodiscard]] bool wasCutShort() const noexcept;

    /// Throws what a stream of the caller's has done wrong; once.
    void rethrowFailure() const {
        if (channel)
            channel->rethrowFailure();
    }

private:
    void check(int result, int number, bool named) const;
    void requireAllTaken(const class Options& left) const;
    void requireSearchOfAPacket() const;
    void makeContext();

    Source origin;
    const Manner& manner;
    std::unique_ptr<InputWatch> watch;
    std::unique_ptr<ByteChannel> channel; // of memory and streams
    InputContextHandle input;             // closed first: it reads through the others
};

} // namespace tio::ffmpeg::detail
