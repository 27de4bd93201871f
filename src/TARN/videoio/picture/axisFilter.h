#pragma once

#include <vector>

namespace tio::ffmpeg::detail {

/// How the samples of a new row (or column) are made of those of an old one.
class AxisFilter {
public:
    /// The part of the old row that one new sample is made of.
    struct Taps {
        int first;
        int count;
        const float* weights; ///< `count` of them, which make up 1
    };

    /// @param samples  there are; the new row may reach beyond them where the last is shared by
    /// fewer
    /// @param target   samples of the new row
    /// @param step     old samples to a new one; where it is below 1, see `smooth`
    /// @param smooth   whether growing draws lines between samples; else they are repeated
    AxisFilter(int samples, int target, double step, bool smooth);

    [[nodiscard]] int size() const noexcept { return static_cast<int>(firsts.size()); }

    /// Whether each new sample is one old one.
    [[nodiscard]] bool picks() const noexcept { return picking; }
    /// Whether the new row is the old one.
    [[nodiscard]] bool isSame() const noexcept { return same; }
    /// Whether each old sample serves for two, in turn.
    [[nodiscard]] bool doubles() const noexcept { return doubling; }

    [[nodiscard]] int pick(int index) const noexcept { return firsts[at(index)]; }
    [[nodiscard]] Taps taps(int index) const noexcept {
        return {firsts[at(index)], begins[at(index + 1)] - begins[at(index)],
                weights.data() + begins[at(index)]};
    }

private:
    static std::size_t at(int index) noexcept { return static_cast<std::size_t>(index); }
    void addArea(double from, double to, int samples);
    void addLine(double centre, int samples);

    std::vector<int> firsts;
    std::vector<int> begins = {0}; // of each one's weights
    std::vector<float> weights;
    bool picking = true;
    bool same = true;
    bool doubling = true;
};

} // namespace tio::ffmpeg::detail
