#pragma once

#include <TARN/videoio/FrameIndexOptions.h>

namespace tio::ffmpeg::detail {

/// Passes progress on, not too often.
class ProgressReport {
public:
    explicit ProgressReport(const IndexProgressCallback& receiver) : callback(receiver) {}

    /// @throws IndexingCancelled when the receiver does not want to go on
    void tell(IndexProgress::Step step, int64_t done, int64_t total) {
        constexpr unsigned every = 16;
        if (callback && calls++ % every == 0 && !callback({step, done, total}))
            throw IndexingCancelled();
    }

private:
    const IndexProgressCallback& callback;
    unsigned calls = 0;
};

} // namespace tio::ffmpeg::detail
