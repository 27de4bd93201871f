#include "base/checks.h"
#include "exact/IndexBuilder.h"
#include "exact/frameWindow.h"
#include "exact/index/IndexFile.h"
#include "exact/index/SourceBytes.h"
#include "exact/index/indexMatch.h"
#include "exact/videoStream.h"
#include "input/SeekingIndex.h"

#include <TARN/videoio/FrameIndex.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace tio::ffmpeg {

namespace {

/// What InputStream makes of the same packets.
detail::SeekingIndex seekingIndexOf(const detail::IndexData& index) {
    detail::SeekingIndex made;
    made.begin();
    for (uint32_t packet = 0; packet < index.packetCount(); ++packet) {
        const int64_t time = index.pts[packet];
        made.record({time, time, index.hasFlag(packet, detail::IndexData::discarded)}, true);
    }
    made.sort();
    made.maxPtsDtsDifference = index.maxPtsDtsDifference;
    return made;
}

void requireInput(const std::shared_ptr<InputFormatContext>& input) {
    if (input == nullptr)
        detail::failPlainly("An index needs an input");
}

} // namespace

IndexingCancelled::IndexingCancelled() : tio::Exception("The making of the index was cancelled") {}

// Out of line for the same reason as that of Exception.
IndexingCancelled::~IndexingCancelled() = default;

FrameIndex FrameIndex::build(const Source& source, const FrameIndexOptions& options) {
    return build(std::make_shared<InputFormatContext>(source), options);
}

FrameIndex FrameIndex::build(const std::shared_ptr<InputFormatContext>& input,
                             const FrameIndexOptions& options) {
    requireInput(input);
    const int stream = detail::videoStreamOf(*input, options.stream);
    const auto source = std::make_shared<detail::PacketSource>(input, stream);
    return FrameIndex(
        std::make_shared<const detail::IndexData>(detail::buildIndex(*input, source, options)));
}

FrameIndex::Loaded FrameIndex::load(const std::string& path,
                                    const std::shared_ptr<InputFormatContext>& input) {
    requireInput(input);
    detail::IndexFileContent content = detail::readIndexFile(path);
    if (content.kind == detail::IndexFileContent::Kind::Damaged)
        return {Match::Corrupt, std::nullopt};
    const AVStream& stream = *input->getStream(input->findBestVideoStreamIndex());
    if (!content.index || !content.index->isOf(stream))
        return {Match::Foreign, std::nullopt};
    detail::SourceBytes bytes(*input);
    const Match match = detail::matchOf(content.index->source, bytes);
    if (match != Match::Fresh)
        return {match, std::nullopt};
    return {match,
            FrameIndex(std::make_shared<const detail::IndexData>(std::move(*content.index)))};
}

FrameIndex FrameIndex::load(const std::string& path) {
    detail::IndexFileContent content = detail::readIndexFile(path);
    if (!content.index)
        detail::failPlainly("\"" + path + "\" is no index of frames, or a damaged one");
    return FrameIndex(std::make_shared<const detail::IndexData>(std::move(*content.index)));
}

FrameIndex::Match FrameIndex::match(const Source& source) const {
    detail::SourceBytes bytes(source);
    return detail::matchOf(data->source, bytes);
}

void FrameIndex::save(const std::string& path) const {
    if (!data->source.isKnown())
        detail::failPlainly(
            "The index of a clip that is not known by its bytes cannot be stored in \"" + path +
            "\": nothing would tell whether it still fits");
    detail::writeIndexFile(path, *data);
}

std::vector<uint8_t> FrameIndex::toBytes() const {
    return detail::bytesOfIndex(*data);
}

FrameIndex FrameIndex::fromBytes(const std::vector<uint8_t>& bytes) {
    detail::IndexFileContent content = detail::indexOfBytes(bytes.data(), bytes.size());
    if (!content.index)
        detail::failPlainly("These bytes are no index, or a damaged one");
    return FrameIndex(std::make_shared<const detail::IndexData>(std::move(*content.index)));
}

void FrameIndex::exportSeekingIndex(const std::string& path) const {
    const detail::SeekingIndex index = seekingIndexOf(*data);
    const auto& times = index.times;
    const auto together = std::adjacent_find(times.begin(), times.end());
    if (times.empty() || times.front() == AV_NOPTS_VALUE || together != times.end())
        detail::failPlainly("No seeking index can be stored in \"" + path +
                            "\": frames share a time, or have none");
    index.store(path, detail::SeekingIndex::AfterFailure::Close);
}

int64_t FrameIndex::frameCount() const noexcept {
    return data->frameCount();
}

bool FrameIndex::hasChecksums() const noexcept {
    return !data->checksums.empty();
}

FrameDigest FrameIndex::digest(int64_t first, int64_t end) const {
    if (!hasChecksums())
        detail::failPlainly("There is no digest of frames without checksums");
    detail::requireFrames(first, end, frameCount(), "the index");
    FrameDigest digest;
    for (int64_t frame = first; frame < end; ++frame)
        digest.add(data->checksums[static_cast<size_t>(frame)]);
    return digest;
}

bool FrameIndex::isDamaged() const noexcept {
    return data->singleThread;
}

int64_t FrameIndex::byteCount() const noexcept {
    return data->byteCount();
}

} // namespace tio::ffmpeg
