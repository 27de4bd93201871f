#pragma once

#include "exact/index/IndexData.h"

#include <TARN/videoio/FrameReader.h>

#include <cstdint>
#include <vector>

namespace tio::ffmpeg::detail {

/// Cuts all frames into at most `count` ranges that begin where decoding can begin, such that the
/// most expensive one costs as little as it can, and the others about as much.
///
/// A range costs the packets from the one where decoding for its first frame begins to the last one
/// that any of its frames needs.
/// @pre count > 0
[[nodiscard]] std::vector<FrameReader::Range>
cutIntoRanges(const IndexData& index, const EntryNotes& learned, int64_t count);

} // namespace tio::ffmpeg::detail
