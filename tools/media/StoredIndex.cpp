#include "media/StoredIndex.h"

namespace tio::tool {

std::optional<ffmpeg::FrameIndex> storedFrameIndex(const InputOptions& input) {
    using Match = ffmpeg::FrameIndex::Match;
    if (!input.index)
        return std::nullopt;
    const auto clip = openInput(input.url);
    auto loaded =
        reading(*input.index, [&] { return ffmpeg::FrameIndex::load(*input.index, clip); });
    if (loaded.match == Match::Stale)
        throw Failure(ExitCode::Input, *input.index, input.url + " has changed since it was made");
    if (loaded.match == Match::Corrupt)
        throw Failure(ExitCode::Input, *input.index, "the index is damaged");
    return std::move(loaded.index);
}

} // namespace tio::tool
