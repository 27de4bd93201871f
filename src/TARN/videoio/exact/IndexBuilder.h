#pragma once

#include "exact/index/IndexData.h"

#include <TARN/videoio/FrameIndexOptions.h>
#include <TARN/videoio/InputFormatContext.h>

#include <memory>

namespace tio::ffmpeg::detail {

/// Makes the index of a stream.
/// @throws IndexingCancelled
/// @throws tio::Exception when the source cannot be read
[[nodiscard]] IndexData buildIndex(const std::shared_ptr<InputFormatContext>& input, int stream,
                                   const FrameIndexOptions& options);

/// Counts the pictures again by decoding all of them, which gives the checksums as well.
/// @param singleThread  as a damaged stream has to be decoded; found out when false
/// @throws as buildIndex()
void countByDecoding(const std::shared_ptr<InputFormatContext>& input, IndexData& index,
                     const FrameIndexOptions& options, bool singleThread);

} // namespace tio::ffmpeg::detail
