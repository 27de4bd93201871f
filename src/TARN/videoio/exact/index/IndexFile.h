#pragma once

#include "exact/index/IndexData.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// @file
/// The file of a FrameIndex; docs/index-file.md describes it.

/// Writes the file, which gets its name when it is complete.
/// @throws tio::Exception naming the path
void writeIndexFile(const std::string& path, const IndexData& index);

/// What an index file turned out to be.
struct IndexFileContent {
    enum class Kind { Whole, Damaged, Other };

    Kind kind;
    std::optional<IndexData> index; ///< with Kind::Whole
};

/// Never gives an index that differs from what was written.
/// @throws tio::Exception naming the path when it cannot be read
[[nodiscard]] IndexFileContent readIndexFile(const std::string& path);

/// What the file of an index holds, in memory, and back.
[[nodiscard]] std::vector<uint8_t> bytesOfIndex(const IndexData& index);
[[nodiscard]] IndexFileContent indexOfBytes(const uint8_t* bytes, size_t count);

} // namespace tio::ffmpeg::detail
