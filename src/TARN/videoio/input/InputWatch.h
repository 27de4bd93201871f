#pragma once

#include <TARN/videoio/OpenOptions.h>

#include <atomic>
#include <chrono>
#include <utility>

namespace tio::ffmpeg::detail {

/// Tells FFmpeg, which asks while it waits for a source, whether it should give up.
class InputWatch {
public:
    enum class Verdict { GoOn, TimedOut, Cancelled };

    explicit InputWatch(OpenOptions openOptions) : options(std::move(openOptions)) {}

    /// Starts the clock for what is done next; 0 for no limit.
    void allow(std::chrono::milliseconds limit) noexcept;

    /// Why FFmpeg was told to give up since the clock was started.
    [[nodiscard]] Verdict verdict() const noexcept { return told; }

    /// FFmpeg's callback; `watch` is one of these.
    static int shouldGiveUp(void* watch) noexcept;

    const OpenOptions options;

private:
    using Clock = std::chrono::steady_clock;

    // FFmpeg may ask from threads of its own.
    std::atomic<Clock::rep> deadline{0}; // since the clock's epoch; 0 for none
    std::atomic<Verdict> told{Verdict::GoOn};
};

} // namespace tio::ffmpeg::detail
