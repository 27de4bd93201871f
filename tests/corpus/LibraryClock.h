#pragma once

#include <chrono>

/// @file
/// How long the library takes for a way into a file: the clock rests while FFmpeg is called
/// directly and while pictures are hashed. What the library's own threads do during a rest is not
/// seen.

namespace tio::survey {

/// Runs from its making on. For one thread.
class LibraryClock {
public:
    using Duration = std::chrono::duration<double>; ///< seconds

    /// The one by which the ways into a file are timed.
    [[nodiscard]] static LibraryClock& instance();

    /// From zero, running.
    void restart();

    [[nodiscard]] Duration elapsed() const;

    /// Lets the clock rest while it lives; one may live within another.
    class Rest {
    public:
        Rest();
        ~Rest();
        Rest(const Rest&) = delete;
        Rest& operator=(const Rest&) = delete;
    };

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point begin = Clock::now(); ///< of the stretch that is running
    Clock::duration before{};               ///< the stretches that are over
    int rests = 0;                          ///< how many live
};

} // namespace tio::survey
