#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tio::test {

/// What a run of the program left behind.
struct ProgramResult {
    int exitCode = -1; ///< as a shell tells it: 128 and the number when a signal ended the program
    std::string out;
    std::string err;
};

/// The surroundings in which the program starts.
struct ProgramSetup {
    std::optional<std::string> standardOutput; ///< file to write to, such as /dev/full
    std::optional<long> fileSizeLimit;         ///< in bytes, as `ulimit -f` sets it
    bool closedPipe = false;                   ///< standard output is a pipe without a reader
};

/// tarn-videoio, started with arguments and running beside the test.
class RunningProgram {
public:
    explicit RunningProgram(const std::vector<std::string>& arguments,
                            const ProgramSetup& setup = {});
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    void send(int signal) const;
    [[nodiscard]] bool hasEnded();

    /// Waits for the end.
    [[nodiscard]] ProgramResult result();

private:
    void startAsChild(const std::vector<std::string>& arguments, const ProgramSetup& setup) const;

    pid_t process = -1;
    bool collected = false;
    int status = 0;
    int out = -1; // files in memory that take the two outputs
    int err = -1;
};

/// Runs tarn-videoio to its end.
[[nodiscard]] ProgramResult runProgram(const std::vector<std::string>& arguments,
                                       const ProgramSetup& setup = {});

/// Runs it with a terminal as standard error and returns what was drawn there.
[[nodiscard]] std::string runOnTerminal(const std::vector<std::string>& arguments);

} // namespace tio::test
