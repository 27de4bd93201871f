#pragma once

#include "terminal/Interruption.h"

#include <cstddef>
#include <optional>
#include <string>

namespace tio::tool {

/// A file that gets its name only when it is complete.
///
/// It is written under a temporary name in the same folder and renamed by publish(); without that,
/// and when the program is interrupted, it disappears. What already exists and is no regular file,
/// such as a device or a pipe, is written to directly. Every failure is a Failure with
/// ExitCode::Output that names the file.
class OutputFile {
public:
    explicit OutputFile(std::string name);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(const void* data, size_t size);

    /// The name under which the file lies until then, for code that opens it by name.
    [[nodiscard]] const std::string& pathToWrite() const {
        return temporary.empty() ? path : temporary;
    }

    /// Removes the empty file again, for code that makes one of that name by itself. Were it there
    /// and truncated, some file systems would write all of it out to the disk at its closing.
    void makeWay();

    /// Completes the file and replaces what had its name before.
    void publish();

private:
    void openTemporary();
    void closeDescriptor();
    void require(bool done) const;

    std::string path;      // the name, as the user gave it
    std::string target;    // where that leads: links are followed, not replaced
    std::string temporary; // empty when written to directly
    std::optional<RemovedOnInterruption> cleanup;
    int descriptor = -1;
};

/// Makes the folder and its parents where they are missing.
void makeFolder(const std::string& path);

} // namespace tio::tool
