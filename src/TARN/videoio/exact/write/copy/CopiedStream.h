#pragma once

#include "base/handles.h"
#include "exact/write/copy/JoinedTimes.h"
#include "exact/write/copy/LeavingTimes.h"
#include "exact/write/copy/OrderedTimes.h"
#include "exact/write/fractions.h"
#include "ffmpeg_compat.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace tio::ffmpeg::detail {

/// What all streams of a copy have in common.
struct CopySetting {
    std::string source; ///< its name
    const ClipContainer& container;
    std::optional<Fraction> from; ///< seconds
    std::optional<Fraction> to;
    bool joins = false; ///< whether the source's times may start over
    JoinedTimes joined;
    bool tellsDecodingLengths = false; ///< and not how long pictures are shown
};

/// The key pictures on both sides of where a range should begin.
struct KeysAround {
    std::optional<Fraction> before;
    std::optional<Fraction> after;
};

/// One stream on its way from a source into a clip. Packets wait here until their times are known,
/// are left out where they are not in the range, and come out with times for the clip.
class CopiedStream {
public:
    /// @param leads  whether the range begins at a key picture of this stream
    CopiedStream(const AVStream& original, CopySetting& setting, bool leads);

    /// @name Going in
    /// @{
    void add(PacketHandle packet);
    void close();  ///< no more come
    void forget(); ///< what waits, after a seek
    /// @}

    /// @name Before the packets go on
    /// @{
    /// Whether so many wait that lacksTimes() can tell.
    [[nodiscard]] bool isProbed() const;
    [[nodiscard]] bool lacksTimes() const;

    /// Packets get the times of an index.
    void order(const IndexData& index) { ordered.emplace(index); }

    /// Lets them go on.
    void start();

    /// Whether the beginning of the range was found.
    [[nodiscard]] bool hasBegun() const noexcept { return begun; }

    /// Key pictures that were met on the way there; with one after it there is no beginning.
    [[nodiscard]] const KeysAround& keys() const noexcept { return met; }
    /// @}

    /// @name Coming out
    /// @{
    /// Whether enough wait to answer the questions that follow.
    [[nodiscard]] bool isReady() const;
    [[nodiscard]] bool isEmpty() const noexcept { return leaving.empty(); }
    [[nodiscard]] bool isPast() const noexcept { return past; } ///< nothing to come is in the range

    /// Seconds at which the first picture is shown, or the first sample heard.
    [[nodiscard]] Fraction begin() const;

    /// The last tick of the source that is not after that many seconds, in seconds.
    [[nodiscard]] Fraction tickBefore(const Fraction& seconds) const;

    /// Samples that a player takes off at the beginning.
    [[nodiscard]] int runIn() const;

    /// Takes so many seconds off all times.
    void shiftBy(const Fraction& origin);

    /// The next packet, in ticks(); null when none can go yet.
    [[nodiscard]] PacketHandle next();
    /// @}

    [[nodiscard]] const AVStream& original() const noexcept { return stream; }
    [[nodiscard]] AVRational ticks() const noexcept { return times.ticks(); }
    [[nodiscard]] bool hasPictures() const noexcept { return pictures; }

    /// Packets that came out although they are not in the range, or hidden.
    [[nodiscard]] int64_t extraCount() const noexcept { return extra; }

private:
    void settle();
    void fillDecodingTimes();
    void requireTimes(AVPacket& packet) const;
    void requireSameHeaders(const AVPacket& packet) const;
    void requireNear(const AVPacket& packet) const;
    void requireReadable(const AVPacket& packet) const;
    [[nodiscard]] bool actsAsKey(const AVPacket& packet) const;
    void select(PacketHandle packet);
    [[nodiscard]] bool lastsToEnd() const;
    void decodeKeyLater();
    [[nodiscard]] bool mayGo();
    [[nodiscard]] bool begins(const AVPacket& packet);
    [[nodiscard]] bool findsKey(const AVPacket& packet);
    [[nodiscard]] Fraction secondsOf(int64_t ticks) const;
    [[nodiscard]] int64_t firstTickFrom(const Fraction& seconds) const;
    [[nodiscard]] bool hasEnded() const noexcept { return closed || past; }
    [[noreturn]] void refuseHidden() const;
    [[noreturn]] void fail(const std::string& why) const;

    const AVStream& stream;
    CopySetting& setting;
    LeavingTimes times;
    bool leading;
    bool pictures;

    std::deque<PacketHandle> arriving; ///< without all of their times
    std::deque<PacketHandle> beyond;   ///< not in the range, unless one that is follows
    std::deque<PacketHandle> leaving;
    bool started = false;
    bool closed = false;
    bool past = false;

    std::optional<OrderedTimes> ordered;
    std::size_t numbered = 0; ///< packets that got times of an index
    JoinedTimes::Place place;
    int64_t lastDts = AV_NOPTS_VALUE;
    int64_t lastEnd = 0;

    int64_t firstTick = 0; ///< of the range
    int64_t endTick = 0;
    KeysAround met;
    bool begun = false;
    bool cut = false;   ///< whether anything was left out before the range
    bool shown = false; ///< whether a packet that is shown was let through
    int64_t lastShown = 0;
    int64_t extra = 0;
    int keysAtEnd = 0;
    bool keyFlagged = false; ///< whether any packet that leaves is said to be a key picture
    int64_t shift = 0;       ///< in ticks of the source
    int64_t lastGiven = AV_NOPTS_VALUE; ///< when the last one that came out is decoded, in ticks()
};

} // namespace tio::ffmpeg::detail
