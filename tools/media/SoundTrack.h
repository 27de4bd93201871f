#pragma once

#include "media/OutputClip.h"
#include "media/SoundSource.h"

#include <cstdint>
#include <optional>

namespace tio::tool {

/// The sound of a clip on its way into another, from the sample at a given time on. Where sound is
/// missing in between, silence stands in, so that sound and pictures stay together.
class SoundTrack {
public:
    /// Both have to live as long as the track.
    /// @param begin  time in the source that is 0 in the output, in seconds
    SoundTrack(SoundSource& from, OutputClip& to, const ffmpeg::Rational& begin);

    /// Writes the sound before a time of the source, as far as there is any.
    void writeUpTo(const ffmpeg::Rational& time);

    /// Writes all the rest.
    void writeRest();

private:
    [[nodiscard]] int64_t placeOf(const ffmpeg::Rational& time) const;
    [[nodiscard]] bool readOn();
    void placeBlock();
    void writeBefore(int64_t end);
    void write(const float* samples, int64_t count);

    SoundSource& source;
    OutputClip& output;
    ffmpeg::Rational start;
    SoundSource::Block block;
    int64_t used = 0;    // samples of the block that were written or left out
    int64_t silence = 0; // samples that are missing before the rest of the block
    int64_t place = 0;   // in the output, of the next sample
    bool begun = false;
    bool atEnd = false;
};

} // namespace tio::tool
