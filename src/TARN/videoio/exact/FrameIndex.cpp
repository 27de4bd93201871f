#include "base/checks.h"
#include "base/fileHandle.h"
#include "exact/IndexBuilder.h"
#include "exact/index/IndexFile.h"

#include <TARN/videoio/FrameIndex.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace tio::ffmpeg {

namespace {

// Bytes are those of the bare index: 64-bit integers in the machine's own order.
bool writeNumbers(std::FILE* file, const std::vector<int64_t>& numbers) {
    return std::fwrite(numbers.data(), sizeof(int64_t), numbers.size(), file) == numbers.size();
}

/// The times that InputStream numbers frames by: sorted, without one that repeats at once.
std::vector<int64_t> seekingTimes(const detail::IndexData& index) {
    std::vector<int64_t> times;
    int64_t last = AV_NOPTS_VALUE;
    for (uint32_t packet = 0; packet < index.packetCount(); ++packet) {
        const int64_t time = index.pts[packet];
        if (index.hasFlag(packet, detail::IndexData::discarded) || time == last)
            continue;
        last = time;
        times.push_back(time);
    }
    std::sort(times.begin(), times.end());
    return times;
}

FrameIndex::Match matchOf(detail::SourceIdentity::Likeness likeness) {
    switch (likeness) {
    case detail::SourceIdentity::Likeness::Same:
        return FrameIndex::Match::Fresh;
    case detail::SourceIdentity::Likeness::Changed:
        return FrameIndex::Match::Stale;
    case detail::SourceIdentity::Likeness::Other:
        break;
    }
    return FrameIndex::Match::Foreign;
}

} // namespace

IndexingCancelled::IndexingCancelled() : tio::Exception("The making of the index was cancelled") {}

// Out of line for the same reason as that of Exception.
IndexingCancelled::~IndexingCancelled() = default;

FrameIndex FrameIndex::build(const std::shared_ptr<InputFormatContext>& input,
                             const FrameIndexOptions& options) {
    return FrameIndex(std::make_shared<const detail::IndexData>(
        detail::buildIndex(input, input->findBestVideoStreamIndex(), options)));
}

FrameIndex::Loaded FrameIndex::load(const std::string& path,
                                    const std::shared_ptr<InputFormatContext>& input) {
    detail::IndexFileContent content = detail::readIndexFile(path);
    if (content.kind == detail::IndexFileContent::Kind::Damaged)
        return {Match::Corrupt, std::nullopt};
    const AVStream& stream = *input->getStream(input->findBestVideoStreamIndex());
    if (!content.index || !content.index->isOf(stream))
        return {Match::Foreign, std::nullopt};
    const Match match = matchOf(content.index->source.compareWith(input->getUrl()));
    if (match != Match::Fresh)
        return {match, std::nullopt};
    return {match,
            FrameIndex(std::make_shared<const detail::IndexData>(std::move(*content.index)))};
}

void FrameIndex::save(const std::string& path) const {
    if (!data->source.isKnown())
        detail::failPlainly("The index of what is no local file cannot be stored in \"" + path +
                            "\": nothing would tell whether it still fits");
    detail::writeIndexFile(path, *data);
}

void FrameIndex::exportSeekingIndex(const std::string& path) const {
    const std::vector<int64_t> times = seekingTimes(*data);
    const auto together = std::adjacent_find(times.begin(), times.end());
    if (times.empty() || times.front() == AV_NOPTS_VALUE || together != times.end())
        detail::failPlainly("No seeking index can be stored in \"" + path +
                            "\": frames share a time, or have none");
    detail::FileHandle file(std::fopen(path.c_str(), "wb"));
    if (!file)
        detail::failPlainly("Could not open \"" + path + "\"");
    const bool written =
        writeNumbers(file.get(), {data->maxPtsDtsDifference}) && writeNumbers(file.get(), times);
    const bool closed = std::fclose(file.release()) == 0;
    if (!written || !closed)
        detail::failPlainly("Could not write \"" + path + "\"");
}

int64_t FrameIndex::frameCount() const noexcept {
    return data->frameCount();
}

bool FrameIndex::hasChecksums() const noexcept {
    return !data->checksums.empty();
}

bool FrameIndex::isDamaged() const noexcept {
    return data->singleThread;
}

int64_t FrameIndex::byteCount() const noexcept {
    return data->byteCount();
}

} // namespace tio::ffmpeg
