#pragma once

#include <string>

namespace tio::bench {

/// The clip that is measured: what the environment variable TARN_BENCH_CLIP names, else a made one
/// of ten seconds, 1280 × 720, H.264 with B-frames and a key frame every 100 frames.
[[nodiscard]] const std::string& clip();

/// The same, tagged to be turned by 90 degrees. Always a made one.
[[nodiscard]] const std::string& rotatedClip();

} // namespace tio::bench
