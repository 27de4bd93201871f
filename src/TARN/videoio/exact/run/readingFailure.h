#pragma once

#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Source.h>

#include <cstdint>

namespace tio::ffmpeg::detail {

/// @throws tio::ffmpeg::Exception with the name of the source
[[noreturn]] void failReading(const EndReason& reason, const Source& source);

/// After a reading that gave no packet: whether the source is at its end. Taken for the end, any
/// other reason would make a shorter stream of it.
/// @throws tio::ffmpeg::Exception when bytes could not be had, a time limit passed, the reading was
///         cancelled, or memory ran out
void requireEnd(const InputFormatContext& input, const Source& source);

/// Goes to a place in a source.
/// @returns false when that is not possible there
/// @throws tio::ffmpeg::Exception when it was stopped: then nothing else is tried
[[nodiscard]] bool seekOrStop(InputFormatContext& input, const Source& source, int stream,
                              int64_t target, int flags);

} // namespace tio::ffmpeg::detail
