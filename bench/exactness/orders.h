#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace tio::bench {

/// An order in which frames are asked for.
struct Order {
    std::string name;
    std::vector<int64_t> frames;
};

/// Forward, in reverse, shuffled and every 7th: all frames of a short clip, 150 spread ones of a
/// long one.
inline std::vector<Order> ordersFor(int64_t frameCount) {
    constexpr int64_t longClip = 300;
    constexpr int64_t spread = 150;
    constexpr size_t stride = 7;
    std::vector<int64_t> forward;
    const int64_t wanted = frameCount > longClip ? spread : frameCount;
    for (int64_t i = 0; i < wanted; ++i)
        forward.push_back(wanted == 1 ? 0 : i * (frameCount - 1) / (wanted - 1));
    std::vector<int64_t> reverse(forward.rbegin(), forward.rend());
    std::vector<int64_t> shuffled = forward;
    std::mt19937_64 random(7);
    for (size_t left = shuffled.size(); left > 1; --left)
        std::swap(shuffled[left - 1], shuffled[random() % left]);
    std::vector<int64_t> strided;
    const size_t last = static_cast<size_t>(std::min<int64_t>(frameCount, 150 * 7));
    for (size_t frame = 0; frame < last; frame += stride)
        strided.push_back(static_cast<int64_t>(frame));
    return {{"forward", forward}, {"reverse", reverse}, {"shuffled", shuffled}, {"7th", strided}};
}

} // namespace tio::bench
