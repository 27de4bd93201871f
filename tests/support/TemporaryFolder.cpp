#include "support/TemporaryFolder.h"

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace tio::test {

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "tarn_test_XXXXXX").string();
    if (!mkdtemp(name.data()))
        throw std::filesystem::filesystem_error("temporary folder", name,
                                                std::error_code(errno, std::generic_category()));
    folder = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored; // a file that cannot be removed must not end the test run
    std::filesystem::remove_all(folder, ignored);
}

int unfinishedFilesIn(const std::filesystem::path& folder) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        count += entry.path().extension() == ".part" ? 1 : 0;
    return count;
}

} // namespace tio::test
