#pragma once

#include <filesystem>
#include <string>

namespace tio::test {

/// A folder of its own under the system's temporary path, removed with all it holds at the end.
class TemporaryFolder {
public:
    /// @throws std::filesystem::filesystem_error when no folder can be made
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return folder; }

    /// Where a file of that name in the folder is, as the text that FFmpeg and `fopen` take.
    [[nodiscard]] std::string file(const std::string& name) const {
        return (folder / name).string();
    }

private:
    std::filesystem::path folder;
};

/// How many files of a folder wait for their name still.
[[nodiscard]] int unfinishedFilesIn(const std::filesystem::path& folder);

} // namespace tio::test
