#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tio::tool {

/// A line on the terminal that tells how far long work has come. It writes to standard error, only
/// when that is a terminal, and is gone when the work is done.
class Progress {
public:
    /// @param name   what is being done, a word or two
    /// @param unit   what is counted, such as "frames"
    /// @param steps  how many there will be, where it is known
    Progress(std::string name, std::string unit, std::optional<int64_t> steps, bool quiet);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// One more step is done.
    void advance();

private:
    using Clock = std::chrono::steady_clock;

    void draw(Clock::time_point now) const;
    [[nodiscard]] std::string bar() const;

    std::string task;
    std::string counted;
    std::optional<int64_t> total;
    bool shown;
    int64_t done = 0;
    Clock::time_point start;
    Clock::time_point nextDrawing;
};

} // namespace tio::tool
