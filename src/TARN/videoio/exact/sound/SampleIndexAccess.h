#pragma once

#include "exact/sound/SoundIndexData.h"

#include <TARN/videoio/SampleIndex.h>

#include <memory>
#include <utility>

namespace tio::ffmpeg::detail {

/// From the public index to what it holds, and back.
struct SampleIndexAccess {
    [[nodiscard]] static const std::shared_ptr<const SoundIndexData>&
    dataOf(const SampleIndex& index) {
        return index.data;
    }
    [[nodiscard]] static SampleIndex indexOf(std::shared_ptr<const SoundIndexData> data) {
        return SampleIndex(std::move(data));
    }
};

} // namespace tio::ffmpeg::detail
