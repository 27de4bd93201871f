#pragma once

#include <TARN/videoio/Export.h>

#include <cstddef>
#include <cstdint>

namespace tio::ffmpeg {

/// Takes the bytes of a clip in the caller's own code: a connection, an archive, a cipher.
///
/// What a sink throws ends the call that was writing in a tio::ffmpeg::Exception with the name of
/// the clip, which holds it as its nested exception (std::rethrow_if_nested).
/// Thread rule: called in the thread that writes the clip, one call at a time.
class TARN_VIDEOIO_API ByteSink {
public:
    ByteSink() = default;
    ByteSink(const ByteSink&) = delete;
    ByteSink& operator=(const ByteSink&) = delete;
    virtual ~ByteSink();

    /// Takes all `count` bytes, at the place where the sink stands.
    virtual void write(const uint8_t* bytes, std::size_t count) = 0;

    /// Whether seek() can be called. Nothing needs it; a Matroska file in fragments tells its
    /// length where it can.
    [[nodiscard]] virtual bool canSeek() const { return false; }

    /// Goes to a byte, counted from 0, at most behind the last.
    virtual void seek(int64_t position);
};

} // namespace tio::ffmpeg
