#include "exact/frameWindow.h"

#include "base/checks.h"

#include <algorithm>
#include <unordered_set>

namespace tio::ffmpeg::detail {

namespace {

using Offset = std::vector<int64_t>::difference_type;

size_t endOfRisingRun(const std::vector<int64_t>& frames, size_t begin) {
    const auto end =
        std::is_sorted_until(frames.begin() + static_cast<Offset>(begin), frames.end());
    return static_cast<size_t>(end - frames.begin());
}

} // namespace

size_t endOfWindow(const std::vector<int64_t>& frames, size_t begin, size_t capacity,
                   const std::function<uint32_t(int64_t frame)>& groupOf) {
    std::unordered_set<int64_t> different;
    size_t end = begin;
    while (end < frames.size() && (different.size() < capacity || different.count(frames[end]) > 0))
        different.insert(frames[end++]);
    const size_t rising = endOfRisingRun(frames, begin);
    if (rising >= end || end == frames.size())
        return std::max(rising, end);
    for (size_t cut = end; cut > begin + (end - begin) / 2; --cut)
        if (groupOf(frames[cut - 1]) != groupOf(frames[cut]))
            return cut;
    return end;
}

void requireFrames(int64_t first, int64_t end, int64_t count, const std::string& of) {
    if (0 <= first && first <= end && end <= count)
        return;
    failAssertion("Frames " + std::to_string(first) + " up to and without " + std::to_string(end) +
                      " are not all among the " + std::to_string(count) + " of " + of,
                  "0 <= first && first <= end && end <= count", {"frameWindow", 1});
}

std::vector<int64_t> decodingOrder(const std::vector<int64_t>& frames, size_t begin, size_t end) {
    std::vector<int64_t> order(frames.begin() + static_cast<Offset>(begin),
                               frames.begin() + static_cast<Offset>(end));
    std::sort(order.begin(), order.end());
    order.erase(std::unique(order.begin(), order.end()), order.end());
    return order;
}

} // namespace tio::ffmpeg::detail
