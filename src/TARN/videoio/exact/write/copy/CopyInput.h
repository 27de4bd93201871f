#pragma once

#include "base/handles.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Source.h>

#include <cstdint>
#include <vector>

namespace tio::ffmpeg::detail {

/// The source of a copy while it is open.
class CopyInput {
public:
    /// @throws as opening an InputFormatContext
    explicit CopyInput(const Source& source);

    /// Says which streams are read; the others are passed over.
    void choose(std::vector<int> streams);

    [[nodiscard]] AVFormatContext& format();
    [[nodiscard]] AVStream& stream(int number);

    /// The next packet of any chosen stream; null at the end.
    /// @throws tio::ffmpeg::Exception when bytes cannot be had, a time limit passes, the reading is
    ///         cancelled, or memory runs out
    [[nodiscard]] PacketHandle read();

    /// Goes to a place at or before a time in ticks of a stream.
    /// @returns false when the container cannot
    [[nodiscard]] bool seek(int stream, int64_t ticks);

    [[nodiscard]] int64_t size() const noexcept { return bytes; } ///< 0 when it is not known
    [[nodiscard]] int64_t position() const noexcept { return reached; }

private:
    Source source;
    InputFormatContext input;
    std::vector<int> chosen;
    int64_t bytes = 0;
    int64_t reached = 0;
};

} // namespace tio::ffmpeg::detail
