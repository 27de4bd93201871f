#include "base/initialise.h"

#include "ffmpeg_compat.h"

#include <TARN/logging/log.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <new>
#include <string>

namespace tio::ffmpeg::detail {

namespace {

const std::string ffmpegLogger = "ffmpeg";

// FFmpeg's levels count in steps of 8 from AV_LOG_PANIC (0) to AV_LOG_INFO (32).
int libraryLevel(int ffmpegLevel) {
    constexpr std::array<int, 5> levels = {5, 5, 3, 2, 1};
    // Rotating the low three bits to the top sends everything but exact steps out of the table.
    const auto bits = static_cast<uint32_t>(ffmpegLevel);
    const uint32_t step = (bits >> 3) | (bits << 29);
    return step < levels.size() ? levels[step] : 0;
}

// FFmpeg formats into a caller's buffer and takes the argument list with it, so every call gets a
// copy. The flag says that a line starts here and the context's name goes before it; FFmpeg turns
// it off in the call, hence a new one each time.
int formatLine(void* context, int level, const char* format, va_list arguments, char* buffer,
               int size) {
    va_list copy;
    va_copy(copy, arguments);
    int startsLine = 1;
    const int length = av_log_format_line2(context, level, format, copy, buffer, size, &startsLine);
    va_end(copy);
    return length;
}

void forwardLine(void* context, int ffmpegLevel, const char* format, va_list arguments) {
    const int level = libraryLevel(ffmpegLevel);
    if (ffmpegLevel > AV_LOG_INFO || static_cast<int>(log::getLevel()) < level)
        return;
    const int length = formatLine(context, ffmpegLevel, format, arguments, nullptr, 0);
    if (length < 0)
        return;
    // The buffer size counts FFmpeg's closing zero, so that zero takes the place of the line's last
    // character, the newline as a rule. That is wanted: the logger ends lines itself.
    std::string line(static_cast<size_t>(length), ' ');
    formatLine(context, ffmpegLevel, format, arguments, line.data(), length);
    log::_output(ffmpegLogger, static_cast<log::Level>(level), line);
}

} // namespace

// Nothing may be thrown through FFmpeg, which is C: it would neither free nor unlock anything. What
// cannot be said because memory ran out is not said.
void forwardFfmpegLog(void* context, int ffmpegLevel, const char* format,
                      va_list arguments) noexcept {
    try {
        forwardLine(context, ffmpegLevel, format, arguments);
    } catch (const std::bad_alloc&) {
    }
}

void initialiseOnce() {
    static std::mutex mutex;
    thread_local bool initialised = false;
    if (initialised)
        return;
    const std::lock_guard<std::mutex> lock(mutex);
    avformat_network_init();
    av_log_set_callback(forwardFfmpegLog);
    initialised = true;
}

} // namespace tio::ffmpeg::detail
