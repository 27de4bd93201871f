#pragma once

#include "exact/index/IndexData.h"

#include <TARN/videoio/FrameIndex.h>

#include <memory>
#include <utility>

namespace tio::ffmpeg::detail {

/// From the public index to what it holds, and back.
struct IndexAccess {
    [[nodiscard]] static const std::shared_ptr<const IndexData>& dataOf(const FrameIndex& index) {
        return index.data;
    }
    [[nodiscard]] static FrameIndex indexOf(std::shared_ptr<const IndexData> data) {
        return FrameIndex(std::move(data));
    }
};

} // namespace tio::ffmpeg::detail
