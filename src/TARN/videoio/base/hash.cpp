#include "base/hash.h"

#include "base/littleEndian.h"

#include <array>

namespace tio::ffmpeg::detail {

namespace {

constexpr uint64_t multiplier = 0x9E3779B97F4A7C15u; // odd, and its bits look random: 2^64 / φ

constexpr uint64_t mix(uint64_t state, uint64_t word) noexcept {
    const uint64_t product = (state ^ word) * multiplier;
    return product ^ (product >> 29);
}

/// Up to seven bytes, the rest zero.
uint64_t tailWord(const uint8_t* bytes, size_t size) noexcept {
    uint64_t word = 0;
    for (size_t i = 0; i < size; ++i)
        word |= static_cast<uint64_t>(bytes[i]) << (8 * i);
    return word;
}

} // namespace

uint64_t hashBytes(const void* data, size_t size, uint64_t seed) noexcept {
    constexpr size_t wordSize = sizeof(uint64_t);
    const auto* bytes = static_cast<const uint8_t*>(data);
    uint64_t hash = mix(seed, size);
    // Four chains side by side, because each waits for its own multiplications.
    std::array<uint64_t, 4> lanes = {hash, hash + 1, hash + 2, hash + 3};
    for (; size >= 4 * wordSize; size -= 4 * wordSize, bytes += 4 * wordSize)
        for (size_t lane = 0; lane < 4; ++lane)
            lanes[lane] = mix(lanes[lane], fromLittleEndian<uint64_t>(bytes + lane * wordSize));
    for (const uint64_t lane : lanes)
        hash = mix(hash, lane);
    for (; size >= wordSize; size -= wordSize, bytes += wordSize)
        hash = mix(hash, fromLittleEndian<uint64_t>(bytes));
    return mix(hash, tailWord(bytes, size));
}

} // namespace tio::ffmpeg::detail
