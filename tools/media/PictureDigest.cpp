#include "media/PictureDigest.h"

#include <cstddef>
#include <cstring>

namespace tio::tool {

namespace {

// Every step can be undone, so that two different words never lead from one state to the same next.
uint64_t mixed(uint64_t state, uint64_t word) noexcept {
    constexpr uint64_t oddMultiplier = 0x9E3779B97F4A7C15; // 2^64 over the golden ratio
    state = (state ^ word) * oddMultiplier;
    return state ^ (state >> 32);
}

} // namespace

uint64_t pictureDigest(const tio::PixelFormat::RgbImage& picture) {
    uint64_t state =
        mixed(static_cast<uint64_t>(picture.rows()), static_cast<uint64_t>(picture.cols()));
    const auto* bytes = reinterpret_cast<const unsigned char*>(picture.data());
    size_t left = static_cast<size_t>(picture.count) * sizeof *picture.data();
    for (; left >= sizeof(uint64_t); bytes += sizeof(uint64_t), left -= sizeof(uint64_t)) {
        uint64_t word;
        std::memcpy(&word, bytes, sizeof word);
        state = mixed(state, word);
    }
    uint64_t rest = 0;
    std::memcpy(&rest, bytes, left);
    return mixed(state, rest);
}

} // namespace tio::tool
