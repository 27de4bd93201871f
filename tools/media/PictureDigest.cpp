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

uint64_t digestOf(const uint8_t* bytes, int rows, int rowBytes) {
    uint64_t state = mixed(static_cast<uint64_t>(rows), static_cast<uint64_t>(rowBytes));
    size_t left = static_cast<size_t>(rows) * static_cast<size_t>(rowBytes);
    for (; left >= sizeof(uint64_t); bytes += sizeof(uint64_t), left -= sizeof(uint64_t)) {
        uint64_t word;
        std::memcpy(&word, bytes, sizeof word);
        state = mixed(state, word);
    }
    uint64_t rest = 0;
    std::memcpy(&rest, bytes, left);
    return mixed(state, rest);
}

uint64_t digestOf(const ffmpeg::ConstImageView& picture) {
    return digestOf(picture.planes[0], picture.height, 3 * picture.width);
}

} // namespace tio::tool
