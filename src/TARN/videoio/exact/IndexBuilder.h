#pragma once

#include "exact/index/IndexData.h"
#include "exact/run/PacketSource.h"

#include <TARN/videoio/FrameIndexOptions.h>
#include <TARN/videoio/InputFormatContext.h>

#include <memory>

namespace tio::ffmpeg::detail {

/// Makes the index of the stream that a newly opened source reads. The source is left anywhere, but
/// so that decoding from its start gives what it gives in one that is opened again.
/// @param input  the same source, for what it is recognised by
/// @throws IndexingCancelled
/// @throws tio::Exception when the source cannot be read
[[nodiscard]] IndexData buildIndex(const InputFormatContext& input,
                                   const std::shared_ptr<PacketSource>& source,
                                   const FrameIndexOptions& options);

/// Counts the pictures again by decoding all of them, which gives the checksums as well.
/// @param singleThread  as a damaged stream has to be decoded; found out when false
/// @throws as buildIndex()
void countByDecoding(const std::shared_ptr<PacketSource>& source, IndexData& index,
                     const FrameIndexOptions& options, bool singleThread);

} // namespace tio::ffmpeg::detail
