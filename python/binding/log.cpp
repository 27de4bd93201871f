#include "binding.h"
#include "call.h"

#include <TARN/logging/log.h>

#include <atomic>
#include <cstddef>
#include <deque>
#include <mutex>
#include <pthread.h>

namespace tio::python {

namespace {

struct Line {
    std::string logger;
    log::Level level;
    std::string text;
};

/// Lines wait here until a thread that has the GIL fetches them: those that write them may be
/// FFmpeg's, which must not wait for Python.
class LogQueue {
public:
    // A damaged clip writes a line for each block of a picture.
    static constexpr std::size_t mostLines = 10000;

    void add(const std::string& logger, log::Level level, const std::string& text) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (lines.size() < mostLines)
            lines.push_back({logger, level, text});
        else
            ++lost;
        waiting.store(true);
    }

    std::deque<Line> take(std::size_t& lostLines) {
        const std::lock_guard<std::mutex> lock(mutex);
        waiting.store(false);
        lostLines = std::exchange(lost, 0);
        return std::exchange(lines, {});
    }

    [[nodiscard]] bool isEmpty() const noexcept { return !waiting.load(); }

    std::mutex mutex;

    void forget() noexcept {
        lines.clear();
        lost = 0;
        waiting.store(false);
    }

private:
    std::deque<Line> lines;
    std::size_t lost = 0;
    std::atomic<bool> waiting{false};
};

// Never destroyed: static destructors of other libraries may still write lines.
LogQueue& queue() {
    static auto* all = new LogQueue; // NOLINT(cppcoreguidelines-owning-memory)
    return *all;
}

// A lock that another thread holds during fork() would stay locked in the child.
void lockQueue() {
    queue().mutex.lock();
}
void unlockQueue() {
    queue().mutex.unlock();
}
void forgetQueue() {
    queue().forget(); // those are the parent's to tell
    queue().mutex.unlock();
}

py::object takeLog() {
    if (queue().isEmpty())
        return py::none();
    std::size_t lost = 0;
    const std::deque<Line> lines = queue().take(lost);
    py::list told;
    for (const Line& line : lines) {
        told.append(py::make_tuple(textOf(line.logger, "backslashreplace"),
                                   static_cast<int>(line.level),
                                   textOf(line.text, "backslashreplace")));
    }
    if (lost != 0)
        told.append(py::make_tuple("root", static_cast<int>(log::LevelWarning),
                                   std::to_string(lost) + " further lines were dropped"));
    return told;
}

} // namespace

void bindLog(py::module_& module) {
    pthread_atfork(lockQueue, unlockQueue, forgetQueue);
    log::setSink([](const std::string& logger, log::Level level, const std::string& text) {
        queue().add(logger, level, text);
    });
    module.def("take_log", &takeLog, "Lines since the last call: (logger, level, text); or None.");
}

} // namespace tio::python
