#pragma once

#include "ffmpeg_compat.h"
#include "input/InputWatch.h"

#include <TARN/videoio/Source.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

namespace tio::ffmpeg::detail {

/// FFmpeg's way to the bytes of a ByteStream. Nothing is thrown through FFmpeg, which is C: what
/// the stream does wrong is kept, and thrown once FFmpeg has returned.
class ByteChannel {
public:
    /// Opens the stream of a source of memory or streams. `watch` has to outlive the channel.
    /// @throws tio::ffmpeg::Exception as openStream(); also for a negative size
    ByteChannel(const Source& source, InputWatch& watch);
    ByteChannel(const ByteChannel&) = delete;
    ByteChannel& operator=(const ByteChannel&) = delete;
    ~ByteChannel();

    [[nodiscard]] AVIOContext* io() const noexcept { return context; }

    /// Whether the stream has failed; it is not asked again then.
    [[nodiscard]] bool hasFailed() const noexcept { return failed; }

    /// Throws what the stream has done wrong; once.
    /// @throws tio::ffmpeg::Exception as throwStreamFailure()
    void rethrowFailure();

    /// The stream, to be read without FFmpeg, which seeks in it before it reads on.
    [[nodiscard]] ByteStream& lend() noexcept {
        streamPosition = -1;
        return *stream;
    }

    /// As the stream states it: how many bytes there are, or ByteStream::unknownSize.
    [[nodiscard]] int64_t byteCount() const noexcept { return size; }

    /// Lets the stream be asked again after a failure.
    void forgetFailure() noexcept;

private:
    static int read(void* self, uint8_t* to, int count) noexcept;
    static int64_t seek(void* self, int64_t offset, int whence) noexcept;

    [[nodiscard]] int64_t readSome(uint8_t* to, int64_t count);
    void requireHonest(int64_t got, int64_t count) const;

    const Source source;
    InputWatch& watch;
    std::unique_ptr<ByteStream> stream;
    int64_t size = ByteStream::unknownSize;
    int64_t position = 0;       // at which FFmpeg reads next
    int64_t streamPosition = 0; // at which the stream stands; negative when nobody knows
    bool failed = false;
    std::exception_ptr untold;
    AVIOContext* context = nullptr;
};

} // namespace tio::ffmpeg::detail
