#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

namespace tio::tool {

/// What the program's exit code says. docs/command-line.md lists the same numbers.
enum class ExitCode : int {
    Success = 0,
    Differences = 1, ///< verify found frames that disagree
    Usage = 2,       ///< the arguments make no sense
    Input = 3,       ///< a clip or an index cannot be read, or holds no such frame
    Output = 4,      ///< something cannot be written
};

/// Ends a command: one line for the user and an exit code.
class Failure : public std::runtime_error {
public:
    /// @param name what the line begins with: a file, or "standard output"
    Failure(ExitCode code, const std::string& name, const std::string& reason)
        : std::runtime_error(name + ": " + reason), exitCode(code) {}

    /// The same with more behind it.
    Failure(const Failure& failure, const std::string& more)
        : std::runtime_error(failure.what() + more), exitCode(failure.exitCode) {}

    /// The same with another exit code.
    Failure(const Failure& failure, ExitCode code)
        : std::runtime_error(failure.what()), exitCode(code) {}

    [[nodiscard]] ExitCode code() const noexcept { return exitCode; }

private:
    ExitCode exitCode;
};

/// `text` on one line: control characters, as a file name may hold them, become blanks.
[[nodiscard]] std::string oneLine(std::string text);

/// What went wrong with `file`, in the library's words, without the place in its source, and
/// without the file's name, because the caller puts that in front.
[[nodiscard]] std::string reasonOf(const std::exception& error, const std::string& file);

/// Writes "tarn-videoio: " and `text` as one line to standard error.
void printError(const std::string& text);

/// Runs `work`: whatever it throws becomes a Failure that names the file.
template <typename Work>
auto workingOn(const std::string& file, ExitCode code, Work&& work) {
    try {
        return work();
    } catch (const Failure&) {
        throw;
    } catch (const std::exception& error) {
        throw Failure(code, file, reasonOf(error, file));
    }
}

/// The same for work that reads the file.
template <typename Work>
auto reading(const std::string& file, Work&& work) {
    return workingOn(file, ExitCode::Input, std::forward<Work>(work));
}

/// The same for work that writes it.
template <typename Work>
auto writing(const std::string& file, Work&& work) {
    return workingOn(file, ExitCode::Output, std::forward<Work>(work));
}

} // namespace tio::tool
