#include "DefaultSink.h"

#include <TARN/logging/log.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

namespace tio::log {

namespace {

/// The sink that is set. Callers take a share of it and use it after the lock is released, so a
/// sink may log and set sinks itself, and one that is replaced lives until its last call has
/// returned.
class SinkHolder {
public:
    [[nodiscard]] std::shared_ptr<const Sink> get() const {
        const std::lock_guard lock(mutex);
        return sink;
    }

    void set(std::shared_ptr<const Sink> next) {
        // What goes out of use is destroyed after the lock: its destructor may log as well.
        const std::lock_guard lock(mutex);
        sink.swap(next);
    }

private:
    mutable std::mutex mutex;
    std::shared_ptr<const Sink> sink = std::make_shared<const Sink>(writeToStandardError);
};

// Never destroyed, because objects with static lifetime may still log while the process ends.
SinkHolder& sinkHolder() {
    static SinkHolder& holder = *new SinkHolder;
    return holder;
}

std::atomic<Level> currentLevel{LevelFatal};

} // namespace

void _output(const std::string& logger, Level level, const std::string& text) noexcept {
    try {
        (*sinkHolder().get())(logger, level, text);
    } catch (...) {
        // See the declaration: there is nobody left who could be told.
    }
}

Level getLevel() noexcept {
    return currentLevel;
}

void setLevel(Level level) noexcept {
    currentLevel = level;
}

void setSink(Sink sink) {
    if (!sink)
        sink = writeToStandardError;
    sinkHolder().set(std::make_shared<const Sink>(std::move(sink)));
}

} // namespace tio::log
