#include "input/InputWatch.h"

namespace tio::ffmpeg::detail {

void InputWatch::allow(std::chrono::milliseconds limit) noexcept {
    // A limit beyond the clock's range is no limit.
    const auto now = Clock::now();
    const auto longest =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now);
    const bool ends = limit.count() > 0 && limit < longest;
    deadline = ends ? (now + limit).time_since_epoch().count() : 0;
    told = Verdict::GoOn;
}

int InputWatch::shouldGiveUp(void* watch) noexcept {
    auto& self = *static_cast<InputWatch*>(watch);
    const Clock::rep end = self.deadline;
    // The caller is not asked again for what he has stopped.
    if (self.told == Verdict::Cancelled || self.options.cancelToken.isCancelled())
        self.told = Verdict::Cancelled;
    else if (end != 0 && Clock::now().time_since_epoch().count() >= end)
        self.told = Verdict::TimedOut;
    return self.told == Verdict::GoOn ? 0 : 1;
}

} // namespace tio::ffmpeg::detail
