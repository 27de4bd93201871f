#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// @file
/// Where the content of an index is written to and read from: a file, or a block of memory.

/// Writes the content; returns whether all of it was written.
using WriteContent = std::function<bool(std::FILE* opened)>;

/// Reads the content of a file of so many bytes.
using ReadContent = std::function<void(std::FILE* opened, uint64_t byteCount)>;

/// The file gets its name when it is complete.
/// @throws tio::Exception naming the path
void storeInFile(const std::string& path, const WriteContent& write);

/// @throws tio::Exception naming the path, when it cannot be opened
void loadFromFile(const std::string& path, const ReadContent& read);

[[nodiscard]] std::vector<uint8_t> storeInMemory(const WriteContent& write);

/// @param count  above 0
void loadFromMemory(const uint8_t* bytes, size_t count, const ReadContent& read);

} // namespace tio::ffmpeg::detail
