#include "support/MediaFolder.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace tio::test {

namespace {

std::filesystem::path wantedFolder() {
    const char* chosen = std::getenv("TARN_TEST_MEDIA");
    return chosen && *chosen ? chosen : TARN_TEST_MEDIA_DEFAULT;
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
    std::filesystem::path folder = wantedFolder();
    if (!std::filesystem::exists(folder / "TRUTH.tsv"))
        return std::nullopt;
    return folder;
}

std::optional<std::filesystem::path> mediaFile(const std::string& name) {
    std::filesystem::path file = wantedFolder() / name;
    if (!std::filesystem::exists(file))
        return std::nullopt;
    return file;
}

std::string mediaMissingMessage() {
    return "real media folder not found: " + wantedFolder().string() +
           " (set TARN_TEST_MEDIA to run this test)";
}

std::vector<TruthRow> readTruth() {
    std::ifstream table(wantedFolder() / "TRUTH.tsv");
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
