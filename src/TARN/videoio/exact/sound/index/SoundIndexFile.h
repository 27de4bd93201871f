#pragma once

#include "exact/sound/index/SoundIndexData.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// @file
/// The file of a SampleIndex; docs/index-file.md describes it.

/// Writes the file, which gets its name when it is complete.
/// @throws tio::Exception naming the path
void writeSoundIndexFile(const std::string& path, const SoundIndexData& index);

/// Never gives an index that differs from what was written: nothing where it is damaged or another
/// kind of file.
/// @throws tio::Exception naming the path when it cannot be read
[[nodiscard]] std::optional<SoundIndexData> readSoundIndexFile(const std::string& path);

/// What the file of an index holds, in memory, and back.
[[nodiscard]] std::vector<uint8_t> bytesOfSoundIndex(const SoundIndexData& index);
[[nodiscard]] std::optional<SoundIndexData> soundIndexOfBytes(const uint8_t* bytes, size_t count);

} // namespace tio::ffmpeg::detail
