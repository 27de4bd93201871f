#pragma once

#include "media/Input.h"

#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tio::tool {

/// The pictures of a clip by frame number, which is that of FrameReader: frame n is the n-th
/// picture that comes out when the stream is decoded from start to end.
///
/// A clip that can be read once only, such as a camera, goes through the stream decoder, in order.
class ClipFrames {
public:
    struct Picture {
        std::shared_ptr<tio::FrameBase> frame; ///< empty where there is no such frame
        ffmpeg::Rational time;                 ///< in seconds
    };
    using Warn = std::function<void(const std::string&)>;

    /// @param warn  told when the bare seeking index that the user gave is not of this clip
    /// @throws Failure naming the clip, or the index file
    ClipFrames(InputOptions input, const Warn& warn);

    /// Frame `number`, larger than in every call before; without a picture when there is none.
    /// @throws Failure naming the clip and the frame that cannot be read
    [[nodiscard]] Picture read(int64_t number);

    /// Number of frames, once it is known: from the start, except of a clip that can be read once
    /// only, whose end has to be reached first.
    [[nodiscard]] std::optional<int64_t> frameCount() const;

    /// What reads them in any order.
    /// @throws Failure naming the clip, when it can be read once only
    [[nodiscard]] ffmpeg::FrameReader& byNumber();

    /// Seconds per tick of the stream's timestamps.
    [[nodiscard]] ffmpeg::Rational unitTime() const { return tick; }

    /// The clip, opened; what it holds may be asked for, but not read.
    [[nodiscard]] const Clip& clip() const { return opened; }

private:
    void openFrames(const Warn& warn);
    void checkSeekingIndex(const Warn& warn) const;
    [[nodiscard]] Picture readNext();

    InputOptions input;
    Clip opened;
    ffmpeg::Rational tick;
    std::optional<ffmpeg::FrameReader> frames;
    std::unique_ptr<ffmpeg::VideoStreamDecoder> decoder; // of a clip that can be read once only
    int64_t nextNumber = 0;                              // of the picture that it gives next
    bool atEnd = false;                                  // nextNumber is the number of frames
};

} // namespace tio::tool
