#include "terminal/Progress.h"

#include "terminal/Clock.h"
#include "terminal/Interruption.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <unistd.h>
#include <utility>

namespace tio::tool {

namespace {

constexpr auto drawingInterval = std::chrono::milliseconds(100);
constexpr int barWidth = 24;
constexpr const char* clearLine = "\r\033[K";

} // namespace

Progress::Progress(std::string name, std::string unit, std::optional<int64_t> steps, bool quiet)
    : task(std::move(name)),
      counted(std::move(unit)),
      total(steps),
      shown(!quiet && ::isatty(STDERR_FILENO) == 1),
      start(Clock::now()),
      nextDrawing(start) {
    if (!shown)
        return;
    noteOpenLine(true);
    draw(start);
}

Progress::~Progress() {
    if (!shown)
        return;
    noteOpenLine(false);
    std::fputs(clearLine, stderr);
}

void Progress::advance() {
    ++done;
    if (!shown)
        return;
    const Clock::time_point now = Clock::now();
    if (now < nextDrawing)
        return;
    nextDrawing = now + drawingInterval;
    draw(now);
}

void Progress::draw(Clock::time_point now) const {
    std::string line = clearLine + task + bar();
    const double seconds = std::chrono::duration<double>(now - start).count();
    if (done > 0 && seconds > 0) {
        const double rate = static_cast<double>(done) / seconds;
        char text[32];
        std::snprintf(text, sizeof text, "  %.1f/s", rate);
        line += "  " + std::to_string(done) + " " + counted + text;
        if (total)
            line += "  ETA " + clockText(std::ceil(static_cast<double>(*total - done) / rate));
    }
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
}

std::string Progress::bar() const {
    if (!total || *total <= 0)
        return {};
    const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(*total));
    const auto filled = static_cast<size_t>(share * barWidth);
    char percent[16];
    std::snprintf(percent, sizeof percent, " %3.0f%%", std::floor(share * 100));
    return "  [" + std::string(filled, '#') + std::string(barWidth - filled, '.') + "]" + percent;
}

} // namespace tio::tool
