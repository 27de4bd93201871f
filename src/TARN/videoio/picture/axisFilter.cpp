#include "picture/axisFilter.h"

#include <algorithm>
#include <cmath>

namespace tio::ffmpeg::detail {

namespace {

// Parts of a sample that are smaller come of rounding and count for nothing.
constexpr double grain = 1e-6;

} // namespace

AxisFilter::AxisFilter(int samples, int target, double step, bool smooth) {
    for (int i = 0; i < target; ++i) {
        if (smooth && step < 1)
            addLine((i + 0.5) * step - 0.5, samples);
        else
            addArea(i * step, (i + 1) * step, samples);
        begins.push_back(static_cast<int>(weights.size()));
        picking = picking && begins[at(i + 1)] == i + 1;
        same = same && picking && firsts[at(i)] == i;
        doubling = doubling && picking && firsts[at(i)] == i / 2;
    }
    same = same && samples == target;
    doubling = doubling && !same;
}

// A new sample is what its stretch of the old row is on average.
void AxisFilter::addArea(double from, double to, int samples) {
    const int first = std::clamp(static_cast<int>(std::floor(from + grain)), 0, samples - 1);
    const int last = std::clamp(static_cast<int>(std::ceil(to - grain)) - 1, first, samples - 1);
    const auto share = [&](int i) {
        return std::min<double>(to, i + 1) - std::max<double>(from, i);
    };
    double sum = 0;
    for (int i = first; i <= last; ++i)
        sum += share(i);
    for (int i = first; i <= last; ++i)
        weights.push_back(first == last ? 1.0F : static_cast<float>(share(i) / sum));
    firsts.push_back(first);
}

// A new sample lies on the line between the middles of the two old ones beside it.
void AxisFilter::addLine(double centre, int samples) {
    const int first = std::clamp(static_cast<int>(std::floor(centre)), 0, samples - 1);
    const double beyond = std::clamp(centre - first, 0.0, 1.0);
    const bool single = beyond < grain || first + 1 >= samples;
    firsts.push_back(first);
    weights.push_back(single ? 1.0F : static_cast<float>(1 - beyond));
    if (!single)
        weights.push_back(static_cast<float>(beyond));
}

} // namespace tio::ffmpeg::detail
