#pragma once

#include "media/Input.h"
#include "media/MemoryFile.h"

#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace tio::tool {

/// The frame index of a clip's best video stream, on a context of its own: asking where a seek
/// would lead moves no decoder.
class SeekPlan {
public:
    /// Loads the index that the user gave, or else makes it, which reads every packet of the
    /// stream.
    /// @throws Failure naming the index file that cannot be loaded
    /// @throws tio::Exception as the library does
    explicit SeekPlan(const InputOptions& input);

    [[nodiscard]] int64_t frameCount() const { return static_cast<int64_t>(times.size()); }

    /// Presentation time of a frame below frameCount().
    [[nodiscard]] ffmpeg::Rational timeOf(int64_t number) const {
        return times[static_cast<size_t>(number)];
    }

    /// The frame that decoding would start at to reach `number`, if it is a key frame and nothing
    /// that follows is shown before it. From anywhere else a decoder may give pictures that have
    /// the right times and are wrong: some containers lead a seek into the middle of a group.
    /// @throws tio::Exception as the library does
    [[nodiscard]] std::optional<int64_t> cleanLandingFor(int64_t number);

    /// Spares `decoder` the pass over the stream.
    void giveTo(ffmpeg::VideoStreamDecoder& decoder) const {
        decoder.loadSeekingIndex(stored.path());
    }

private:
    ffmpeg::InputStream packets;
    std::vector<ffmpeg::Rational> times;
    MemoryFile stored;
};

} // namespace tio::tool
