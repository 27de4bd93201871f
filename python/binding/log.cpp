#include "binding.h"

#include <TARN/logging/log.h>

#include <cstddef>
#include <mutex>
#include <pthread.h>
#include <vector>

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
    }

    std::vector<Line> take() {
        const std::lock_guard<std::mutex> lock(mutex);
        if (lost != 0)
            lines.push_back(
                {"root", log::LevelWarning, std::to_string(lost) + " further lines were dropped"});
        std::vector<Line> taken = std::move(lines);
        forget();
        return taken;
    }

    std::mutex mutex;

    /// With the lock.
    void forget() noexcept {
        lines.clear();
        lost = 0;
    }

private:
    std::vector<Line> lines;
    std::size_t lost = 0;
};

// Never destroyed: static destructors of other libraries may still write lines.
LogQueue& queue() {
    static auto* all = new LogQueue; // NOLINT(cppcoreguidelines-owning-memory)
    return *all;
}

py::object takeLog() {
    const std::vector<Line> lines = queue().take();
    if (lines.empty())
        return py::none();
    py::list told;
    for (const Line& line : lines) {
        told.append(py::make_tuple(textOf(line.logger, "backslashreplace"),
                                   static_cast<int>(line.level),
                                   textOf(line.text, "backslashreplace")));
    }
    return told;
}

} // namespace

void bindLog(py::module_& module) {
    // A lock that another thread holds during fork() would stay locked in the child; the lines are
    // the parent's to tell.
    pthread_atfork([] { queue().mutex.lock(); }, [] { queue().mutex.unlock(); },
                   [] {
                       queue().forget();
                       queue().mutex.unlock();
                   });
    log::setSink([](const std::string& logger, log::Level level, const std::string& text) {
        queue().add(logger, level, text);
    });
    module.def("take_log", &takeLog, "Lines since the last call: (logger, level, text); or None.");
}

} // namespace tio::python
