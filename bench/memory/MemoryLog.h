#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace tio::bench {

/// What this process holds at a moment, in KiB.
struct MemoryUse {
    int64_t resident; ///< in the machine's memory, as the system counts it
    int64_t heap;     ///< allocated and not freed, as the C library counts it
};

[[nodiscard]] MemoryUse memoryUse();

/// The memory of one task along its way, and whether it stayed flat.
class MemoryLog {
public:
    /// Writes lines of CSV: task, steps done, steps in all, resident KiB, heap KiB.
    MemoryLog(std::ostream& csv, std::string task, int64_t steps);

    /// To be called after every step, in a state that comes again and again; looks at the memory
    /// now and then.
    void stepDone(int64_t done);

    /// Tells what was found on standard error.
    /// @param allowed KiB by which it has to grow
    /// @returns whether resident memory grew by less than 1 % more after the first tenth
    [[nodiscard]] bool report(double allowed = 0) const;

    /// By how many KiB resident memory grew from the second tenth to the last one.
    [[nodiscard]] double growth() const;

private:
    std::ostream& csv;
    std::string task;
    int64_t steps;
    std::vector<MemoryUse> samples;
};

} // namespace tio::bench
