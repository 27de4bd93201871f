#pragma once

#include "media/Input.h"

#include <TARN/videoio/Metadata.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tio::tool {

struct StreamFacts {
    ffmpeg::Metadata metadata;
    std::optional<ffmpeg::Rational>
        duration;                  // seconds, where the container states the stream's own
    std::optional<int64_t> frames; // only where they were counted
};

/// What a clip holds, as far as it can be told without decoding pictures.
struct ClipFacts {
    std::string file;
    std::string container;
    bool ptsSeekable = false;
    std::optional<int> bestVideo;
    std::optional<int> bestAudio;
    std::vector<StreamFacts> streams;
};

/// Opens the clip and looks. The frames of the best video stream are counted when `count` says so,
/// by one pass over the clip, or for free from an index.
[[nodiscard]] ClipFacts gatherFacts(const InputOptions& input, bool count);

} // namespace tio::tool
