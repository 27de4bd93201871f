#pragma once

#include "exact/sound/index/SoundIndexData.h"

#include <cstdint>

namespace tio::ffmpeg::detail {

/// The packet from which decoding has to begin for packet `target` and all behind it to give what a
/// decoding from the start gives, by the rules of the codec. docs/exactness.md has the table.
///
/// For codecs without such a rule it is a guess that is often right; their index has checksums.
/// @param attempt  0 at first; each further one begins earlier, the last ones at packet 0
[[nodiscard]] uint32_t entryFor(const SoundIndexData& index, uint32_t target, int attempt);

} // namespace tio::ffmpeg::detail
