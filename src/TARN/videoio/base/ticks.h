#pragma once

#include <cstdint>

namespace tio::ffmpeg::detail {

/// Sums of timestamps wrap around where they do not fit: an unknown time is the smallest integer,
/// and damaged files hold any.
[[nodiscard]] constexpr int64_t wrappingDifference(int64_t a, int64_t b) noexcept {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

[[nodiscard]] constexpr int64_t wrappingSum(int64_t a, int64_t b) noexcept {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

} // namespace tio::ffmpeg::detail
