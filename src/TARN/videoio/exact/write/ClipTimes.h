#pragma once

#include "exact/write/fractions.h"

#include <TARN/videoio/ClipRefusal.h>
#include <TARN/videoio/ClipWriterOptions.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// The finest tick of a track: MP4 has 32 bits for ticks a second, and FFmpeg uses 31 of them.
constexpr int64_t finestScale = 2147483647;

/// How far encoders move a picture in their output at most: behind 16 B-pictures, and the
/// references on both sides of them.
constexpr std::size_t furthestReach = 18;

/// How a container counts time.
struct TimeRules {
    int64_t fixedScale = 0; ///< ticks a second that cannot be chosen, to which times are rounded
    std::optional<Fraction> grid; ///< of which all times have to be multiples
    std::optional<Fraction> step; ///< from picture to picture, where that is known
    int64_t exactScale = 0;     ///< ticks a second that are decided from the start; 0: by the times
    int64_t preferredScale = 1; ///< ticks a second to be used if they do
    ClipOrigin origin = ClipOrigin::AsGiven;
    bool reorders = false;             ///< whether pictures may be decoded in another order
    bool startsAfresh = true;          ///< whether the encoder does after a long pause
    std::size_t reach = furthestReach; ///< of reordering, in pictures
};

/// After so long a pause, in seconds, pictures are decoded without those before it, if the encoder
/// can do that.
constexpr int64_t longPause = 10;

/// Ticks a second up to which the times of reordered pictures always fit into a file: of as many as
/// `reach`, each as long as the longest that is no pause.
constexpr int64_t finestReordered(std::size_t reach) {
    return ((1 << 28) - 1) / (static_cast<int64_t>(reach) * longPause);
}

/// Ticks that FFmpeg takes between two packets when it writes MP4.
constexpr int64_t mostBetween = 2147483646;

/// Ticks that FFmpeg takes between the decoding and the showing of a picture when it reads MP4.
constexpr int64_t mostShownAhead = (1 << 28) - 1;

/// How long a picture is shown of which nothing is known but that it is there, in seconds.
inline const Fraction usualDuration{1, 25};

/// The times of a clip's pictures: which ones the container can hold, and in which ticks.
///
/// A tick that suits all times so far is kept as the common multiple of their denominators. It may
/// become finer until a limit is reached: the finest tick that there is, the longest time between
/// pictures, which takes 31 bits as well, or that between the decoding and the showing of one.
class ClipTimes {
public:
    /// A time that has passed all checks, and what becomes of this object when it is taken.
    struct Candidate {
        Fraction zero; ///< the origin
        Fraction time; ///< from there
        Fraction end;  ///< when the picture is gone, should it be the last
        bool endIsGiven = false;
        bool afterPause = false;
        int64_t scale = 1;
        Fraction longestGap;
        Fraction longestSpan;
    };

    explicit ClipTimes(TimeRules timeRules);

    /// @throws TimeRefusal with `name` in its text
    [[nodiscard]] Candidate check(Fraction given, std::optional<Fraction> duration,
                                  const std::string& name) const;

    /// Says that pictures come out of the encoder as they go in.
    void keepOrder() noexcept { rules.reorders = false; }

    /// Makes room for one more, so that accept() cannot fail.
    void makeRoom();
    void accept(const Candidate& candidate) noexcept;

    [[nodiscard]] std::size_t count() const noexcept { return times.size(); }

    /// Time for the next picture, `rate` being known.
    [[nodiscard]] Fraction next() const;

    /// Whether the last picture came with a duration.
    [[nodiscard]] bool lastHasDuration() const noexcept { return lastEndIsGiven; }

    /// What the caller's times count from; nothing until it is known.
    [[nodiscard]] std::optional<Fraction> zero() const noexcept { return origin; }

    /// @throws TimeRefusal for a time of the caller's that is no number
    [[nodiscard]] Fraction fromZero(const Fraction& given, const std::string& name) const;

    /// @name Once there is a picture
    /// @{
    [[nodiscard]] int64_t scale() const; ///< ticks a second

    /// @param number  count() asks for the end of the last picture
    [[nodiscard]] int64_t ticks(std::size_t number, int64_t scale) const;
    [[nodiscard]] Fraction first() const { return times.front(); }
    [[nodiscard]] Fraction end() const;
    /// @}

private:
    void requireGrid(const Fraction& time, const std::string& name) const;
    void requireRise(const Fraction& time, const std::string& name) const;
    void requireRange(const Fraction& time, const std::string& name) const;
    [[nodiscard]] int64_t finerScale(int64_t coarse, const Fraction& time, int64_t limit,
                                     const std::string& name) const;
    void measure(Candidate& candidate, const std::string& name) const;
    void measureSpan(Candidate& candidate, const std::string& name) const;
    [[nodiscard]] Fraction latestAt(Wide tick) const;
    [[nodiscard]] int64_t limitFor(const Fraction& gap, const Fraction& span) const;
    [[noreturn]] void refuse(const std::string& name, const Fraction& time, const std::string& why,
                             const Fraction& nearest) const;

    TimeRules rules;
    std::optional<Fraction> origin;
    std::vector<Fraction> times; ///< rising
    Fraction lastEnd;
    bool lastEndIsGiven = false;
    int64_t coarsest = 1;       ///< scale that holds all times
    Fraction longestGap;        ///< between two pictures
    Fraction longestSpan;       ///< between two that an encoder may exchange
    std::size_t sincePause = 0; ///< pictures
};

} // namespace tio::ffmpeg::detail
