#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// @file
/// Real clips. They are not part of the sources: the environment variable TARN_TEST_MEDIA names
/// their folder. Without it there are none.

namespace tio::test {

/// The folder, if there is one. It holds a table TRUTH.tsv and sub-folders such as "video".
[[nodiscard]] std::optional<std::filesystem::path> mediaFolder();

/// A file of the folder, if it is there. `name` is relative, such as "video/small.mp4".
[[nodiscard]] std::optional<std::filesystem::path> mediaFile(const std::string& name);

/// What a test that needs real media says when it is skipped.
[[nodiscard]] std::string mediaMissingMessage();

/// A row of TRUTH.tsv: column name to value, one row for each stream of each file.
using TruthRow = std::map<std::string, std::string>;

/// All rows of the folder's TRUTH.tsv; none without the folder.
[[nodiscard]] std::vector<TruthRow> readTruth();

} // namespace tio::test
