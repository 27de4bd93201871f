#include "exact/sound/SoundIndexBuilder.h"

#include <TARN/videoio/SampleIndex.h>

namespace tio::ffmpeg {

SampleIndex SampleIndex::build(const Source& source, const SampleIndexOptions& options) {
    return SampleIndex(
        std::make_shared<const detail::SoundIndexData>(detail::buildSoundIndex(source, options)));
}

int64_t SampleIndex::sampleCount() const noexcept {
    return data->sampleCount();
}

bool SampleIndex::hasChecksums() const noexcept {
    return !data->checksums.empty();
}

std::vector<SampleIndex::TimeBreak> SampleIndex::timeBreaks() const {
    std::vector<TimeBreak> breaks;
    for (size_t run = 1; run < data->times.size(); ++run) {
        const detail::TimeRun& before = data->times[run - 1];
        const detail::TimeRun& after = data->times[run];
        breaks.push_back(
            {after.firstSample, data->timeInRun(before, after.firstSample), after.start});
    }
    return breaks;
}

int64_t SampleIndex::byteCount() const noexcept {
    return data->byteCount();
}

} // namespace tio::ffmpeg
