#pragma once

#include "exact/sound/index/SoundIndexData.h"

#include <TARN/videoio/SampleIndexOptions.h>
#include <TARN/videoio/Source.h>

namespace tio::ffmpeg::detail {

/// Makes the index of a sound stream.
/// @throws IndexingCancelled
/// @throws tio::Exception when there is no such stream, it is not of sound, or has no decoder, and
///         when the source cannot be read
[[nodiscard]] SoundIndexData buildSoundIndex(const Source& source,
                                             const SampleIndexOptions& options);

/// Counts the samples again by decoding all of them, which gives the checksums as well.
/// @throws as buildSoundIndex()
void countSamples(const Source& source, SoundIndexData& index, const SampleIndexOptions& options);

} // namespace tio::ffmpeg::detail
