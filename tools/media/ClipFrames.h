#pragma once

#include "media/Input.h"
#include "media/PictureOptions.h"

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
/// A live source, such as a camera, goes through the stream decoder, in order.
class ClipFrames {
public:
    struct Picture {
        ffmpeg::Image image;       ///< empty where there is no such frame
        ffmpeg::Rational time;     ///< in seconds
        ffmpeg::Rational duration; ///< 0 where it is not known
    };
    using Warn = std::function<void(const std::string&)>;

    /// @param warn  told when the bare seeking index that the user gave is not of this clip
    /// @throws Failure naming the clip, or the index file
    ClipFrames(InputOptions input, const PictureOptions& pictures, const Warn& warn);

    /// Frame `number`, larger than in every call before; without a picture when there is none.
    /// @throws Failure naming the clip and the frame that cannot be read
    [[nodiscard]] Picture read(int64_t number);

    /// The same for a frame that has to be there.
    /// @throws Failure also when it is not
    [[nodiscard]] Picture readRequired(int64_t number);

    /// @throws Failure saying which frames there are, and that `number` is none of them
    [[noreturn]] void failNoSuchFrame(int64_t number) const;

    /// Number of frames, once it is known: from the start, except of a live source, whose end has
    /// to be reached first.
    [[nodiscard]] std::optional<int64_t> frameCount() const;

    /// What reads them in any order.
    /// @throws Failure naming the clip, when it can be read once only
    [[nodiscard]] ffmpeg::FrameReader& byNumber();

    /// The clip, opened; what it holds may be asked for, but not read.
    [[nodiscard]] const Clip& clip() const { return opened; }

private:
    void openFrames(const PictureOptions& pictures, const Warn& warn);
    void checkSeekingIndex(const Warn& warn) const;
    [[nodiscard]] ffmpeg::VideoPacketDecoder::Frame decodeNext();

    InputOptions input;
    Clip opened;
    std::optional<ffmpeg::FrameReader> frames;
    std::unique_ptr<ffmpeg::VideoStreamDecoder> decoder; // of a live source
    int64_t nextNumber = 0;                              // of the picture that it gives next
    bool atEnd = false;                                  // nextNumber is the number of frames
};

} // namespace tio::tool
