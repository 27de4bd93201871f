#pragma once

#include <cstdarg>

namespace tio::ffmpeg::detail {

/// Starts FFmpeg's network layer and routes its log lines into ours; once per calling thread.
/// Repeating it on each new thread is harmless; a mutex keeps two threads from doing it at the same
/// moment.
void initialiseOnce();

/// FFmpeg's log callback: forwards what is worth a line to the logger "ffmpeg". Called on any
/// thread, FFmpeg's own included, and keeps nothing between calls.
void forwardFfmpegLog(void* context, int ffmpegLevel, const char* format,
                      va_list arguments) noexcept;

} // namespace tio::ffmpeg::detail
