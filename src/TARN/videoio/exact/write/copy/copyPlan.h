#pragma once

#include "exact/write/ClipContainer.h"
#include "exact/write/fractions.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/ClipCopierOptions.h>
#include <TARN/videoio/ClipWriterOptions.h>
#include <TARN/videoio/Source.h>

#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// @throws ClipRefusal for a copy that would take the place of its source, under any of its names
void requireOtherFile(const Source& source, const std::string& path);

/// @throws ClipRefusal for an end that is not after the beginning, and the like
void checkRange(const std::string& path, const ClipCopierOptions& options);

/// The numbers of the streams that are copied.
/// @throws ClipRefusal for streams that are not there, or that the container cannot hold
[[nodiscard]] std::vector<int> chooseStreams(const AVFormatContext& input,
                                             const ClipCopierOptions& options,
                                             const ClipContainer& container,
                                             const std::string& path);

/// What is written of the file as a whole: tags and chapters of the source, the latter `origin`
/// seconds earlier and as far as they lie in the range.
[[nodiscard]] ClipWriterOptions describeCopy(const AVFormatContext& input,
                                             const ClipCopierOptions& options,
                                             const ClipContainer& container,
                                             const Fraction& origin);

} // namespace tio::ffmpeg::detail
