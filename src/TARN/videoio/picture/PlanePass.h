#pragma once

#include "picture/ComponentReader.h"
#include "picture/axisFilter.h"
#include "picture/colours.h"
#include "picture/smallRgb.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tio::ffmpeg::detail {

/// Where a plane of the target lies, and in which order its pixels are filled.
struct PlaneTarget {
    uint8_t* data;
    std::ptrdiff_t stride;
    int way; ///< that turns the stored rows upright
};

/// Makes one plane of an image of one to three components of a picture, row by row.
/// Thread rule: used by one thread at a time.
class PlanePass {
public:
    /// One component, and how it is brought to the size of the plane.
    struct Input {
        ComponentReader reader;
        AxisFilter across;
        AxisFilter down;
    };

    /// What the plane consists of. Each of its channels is made of all three components, of the
    /// only one, or of that of two that has its number.
    struct Recipe {
        std::vector<Input> inputs;
        Affine weights; ///< from samples to levels of the target; rows are channels
        int channels;
        int depth; ///< of the target: 8 bits, or up to 16 in two bytes
    };

    explicit PlanePass(Recipe recipe);

    void run(const AVFrame& picture, const PlaneTarget& target);

private:
    [[nodiscard]] int rows() const noexcept { return inputs.front().down.size(); }
    [[nodiscard]] int columns() const noexcept { return inputs.front().across.size(); }
    [[nodiscard]] int pixelBytes() const noexcept { return channels * (depth > 8 ? 2 : 1); }

    [[nodiscard]] bool copiesBytes() const;
    [[nodiscard]] bool allowsSmall() const;

    void makeRow(const AVFrame& picture, int row, uint8_t* out);
    void makeSmallRow(const AVFrame& picture, int row, uint8_t* out) const;
    void fetch(const AVFrame& picture, size_t input, int row);
    void filterAcross(const AxisFilter& filter, const float* in, float* out) const;
    void placeStrip(int firstRow, int count, const PlaneTarget& target) const;

    std::vector<Input> inputs;
    Affine weights;
    int channels;
    int depth;
    bool copying;
    bool small; // in whole numbers
    std::array<SmallWeights, 3> smallWeights{};

    // Rows under way.
    struct Working {
        std::vector<float> down;   // of the picture's width, where it is filtered
        std::vector<float> across; // of the plane's width
        int held = -1;             // row of the picture that `across` is made of alone
    };
    std::vector<Working> working;
    std::array<std::vector<uint16_t>, 3> levels;
    std::array<std::vector<uint8_t>, 3> smallLevels;
    std::vector<uint8_t> strip; // rows that wait to be turned
};

} // namespace tio::ffmpeg::detail
