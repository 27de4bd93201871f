#include "base/checks.h"

#include <TARN/videoio/OpenOptions.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <utility>

namespace tio::ffmpeg {

struct CancelToken::State {
    using Clock = std::chrono::steady_clock;

    // Short enough for a key press, and long enough to cost nothing beside what is read meanwhile.
    static constexpr std::chrono::milliseconds pause{50};
    static constexpr Clock::rep never = std::numeric_limits<Clock::rep>::max();

    /// Whoever takes the moment at which the caller is to be asked asks him.
    [[nodiscard]] bool ask() noexcept {
        Clock::rep due = nextQuestion;
        if (Clock::now().time_since_epoch().count() < due ||
            !nextQuestion.compare_exchange_strong(due, never))
            return false;
        bool stop = true;
        try {
            stop = poll();
        } catch (...) { // through FFmpeg it cannot go
        }
        nextQuestion = (Clock::now() + pause).time_since_epoch().count();
        return stop;
    }

    std::atomic<bool> cancelled{false};
    Poll poll;
    std::atomic<Clock::rep> nextQuestion{std::numeric_limits<Clock::rep>::min()};
};

CancelToken::CancelToken() : state(std::make_shared<State>()) {}

CancelToken::CancelToken(Poll poll) : CancelToken() {
    if (!poll)
        detail::failPlainly("A CancelToken needs a function that can be called");
    state->poll = std::move(poll);
}

void CancelToken::cancel() const noexcept {
    state->cancelled = true;
}

bool CancelToken::isCancelled() const noexcept {
    return state->cancelled || (state->poll && state->ask());
}

} // namespace tio::ffmpeg
