#pragma once

#include "terminal/Interruption.h"

#include <TARN/videoio/AtomicFile.h>

#include <cstddef>
#include <optional>
#include <string>

namespace tio::tool {

/// A file of the program's: an AtomicFile that an interruption by a signal removes too. Every
/// failure is a Failure with ExitCode::Output that names the file.
class OutputFile {
public:
    using Flush = ffmpeg::AtomicFile::Flush;

    /// @throws Failure also when it is the file that the command reads
    explicit OutputFile(std::string name);

    void write(const void* data, size_t size);

    /// The name under which the file lies until it is published, for code that opens it by name.
    [[nodiscard]] const std::string& pathToWrite() const { return file->pathToWrite(); }

    /// Removes the empty file again, for code that makes one of that name by itself.
    void makeWay();

    /// Completes the file and replaces what had its name before.
    void publish(Flush flush = Flush::ToDisk);

private:
    std::string path; // as the user gave it
    std::optional<ffmpeg::AtomicFile> file;
    std::optional<RemovedOnInterruption> cleanup;
};

/// Says which file the command reads: from now on no output replaces it, also not by another of its
/// names.
void protectInput(const std::string& url);

/// For outputs that are written without an OutputFile.
/// @throws Failure with ExitCode::Output when it is the file that the command reads
void requireNotInput(const std::string& path);

/// The hidden file that a writer of the library's holds open, or nothing. Its name is the writer's
/// own business, but a signal has to remove it.
[[nodiscard]] std::string hiddenFile();

/// Makes the folder and its parents where they are missing.
void makeFolder(const std::string& path);

} // namespace tio::tool
