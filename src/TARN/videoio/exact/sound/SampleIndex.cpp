#include "base/checks.h"
#include "exact/index/SourceBytes.h"
#include "exact/index/indexMatch.h"
#include "exact/sound/SoundIndexBuilder.h"
#include "exact/sound/index/SoundIndexFile.h"

#include <TARN/videoio/SampleIndex.h>

namespace tio::ffmpeg {

SampleIndex SampleIndex::build(const Source& source, const SampleIndexOptions& options) {
    return SampleIndex(
        std::make_shared<const detail::SoundIndexData>(detail::buildSoundIndex(source, options)));
}

SampleIndex SampleIndex::load(const std::string& path) {
    auto read = detail::readSoundIndexFile(path);
    if (!read)
        detail::failPlainly("\"" + path + "\" is no index of sound, or a damaged one");
    return SampleIndex(std::make_shared<const detail::SoundIndexData>(std::move(*read)));
}

SampleIndex::Match SampleIndex::match(const Source& source) const {
    detail::SourceBytes bytes(source);
    return detail::matchOf(data->packets.source, bytes);
}

void SampleIndex::save(const std::string& path) const {
    if (!data->packets.source.isKnown())
        detail::failPlainly(
            "The index of a clip that is not known by its bytes cannot be stored in \"" + path +
            "\": nothing would tell whether it still fits");
    detail::writeSoundIndexFile(path, *data);
}

std::vector<uint8_t> SampleIndex::toBytes() const {
    return detail::bytesOfSoundIndex(*data);
}

SampleIndex SampleIndex::fromBytes(const std::vector<uint8_t>& bytes) {
    auto read = detail::soundIndexOfBytes(bytes.data(), bytes.size());
    if (!read)
        detail::failPlainly("These bytes are no index of sound, or a damaged one");
    return SampleIndex(std::make_shared<const detail::SoundIndexData>(std::move(*read)));
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
