#include "support/MediaFolder.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace tio::test {

namespace {

/// Empty when nobody named one: then every test that needs a real clip is skipped.
std::filesystem::path namedFolder() {
    const char* named = std::getenv("TARN_TEST_MEDIA");
    return named ? named : "";
}

std::vector<std::string> splitAtTabs(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream rest(line);
    for (std::string field; std::getline(rest, field, '\t');)
        fields.push_back(field);
    return fields;
}

} // namespace

std::optional<std::filesystem::path> mediaFolder() {
    std::filesystem::path folder = namedFolder();
    if (folder.empty() || !std::filesystem::exists(folder / "TRUTH.tsv"))
        return std::nullopt;
    return folder;
}

std::optional<std::filesystem::path> mediaFile(const std::string& name) {
    const std::optional<std::filesystem::path> folder = mediaFolder();
    if (!folder || !std::filesystem::exists(*folder / name))
        return std::nullopt;
    return *folder / name;
}

std::string mediaMissingMessage() {
    const std::string folder = namedFolder().string();
    if (folder.empty())
        return "no folder of real clips (set TARN_TEST_MEDIA to run this test)";
    return "no real clips in " + folder + " (TARN_TEST_MEDIA)";
}

std::vector<TruthRow> readTruth() {
    const std::optional<std::filesystem::path> folder = mediaFolder();
    if (!folder)
        return {};
    std::ifstream table(*folder / "TRUTH.tsv");
    std::string line;
    std::getline(table, line);
    const std::vector<std::string> columns = splitAtTabs(line);
    std::vector<TruthRow> rows;
    while (std::getline(table, line)) {
        const std::vector<std::string> fields = splitAtTabs(line);
        TruthRow row;
        for (std::size_t i = 0; i < columns.size(); ++i)
            row[columns[i]] = i < fields.size() ? fields[i] : "";
        rows.push_back(std::move(row));
    }
    return rows;
}

} // namespace tio::test
