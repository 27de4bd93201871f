#pragma once

#include "exact/write/MatroskaDelay.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/ByteSink.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// FFmpeg's way to a sink. Nothing is thrown through FFmpeg, which is C: what the sink throws is
/// kept, and thrown once FFmpeg has returned.
class SinkChannel {
public:
    /// @param clip  the name that failures tell
    SinkChannel(ByteSink& sink, std::string clip);
    SinkChannel(const SinkChannel&) = delete;
    SinkChannel& operator=(const SinkChannel&) = delete;
    ~SinkChannel();

    [[nodiscard]] AVIOContext* io() const noexcept { return context; }

    /// Has a run-in filled into the head of the file, which Matroska's muxer may write twice.
    void fillFirst(const MatroskaDelay& delay) { delays.push_back(delay); }

    /// Throws what the sink has thrown, with the clip's name; once.
    void rethrowFailure();

private:
    void pass(uint8_t* bytes, std::size_t count);
    int64_t go(int64_t offset, int whence);
    template <typename Work>
    [[nodiscard]] int64_t guarded(const Work& work) noexcept;

    ByteSink& sink;
    std::string name;
    std::vector<MatroskaDelay> delays;
    int64_t position = 0;
    int64_t size = 0;
    bool failed = false;
    std::exception_ptr untold;
    AVIOContext* context = nullptr;
};

} // namespace tio::ffmpeg::detail
