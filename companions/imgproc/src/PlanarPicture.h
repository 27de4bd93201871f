#pragma once

#include <TARN/core/Vec.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace tio::PixelFormat {

/// A plane with memory of its own from the process-wide allocator. Its rows may be followed by
/// padding, and spare bytes follow the last one, so that SIMD code may step beyond a row.
class PlaneBuffer {
public:
    PlaneBuffer() = default;

    /// @param rowStep bytes from row to row, at least `cols`.
    PlaneBuffer(int rows, int rowStep);

    [[nodiscard]] uint8_t* row(int index) noexcept { return at(index); }
    [[nodiscard]] const uint8_t* row(int index) const noexcept { return at(index); }
    [[nodiscard]] int step() const noexcept { return rowStep; }

private:
    [[nodiscard]] uint8_t* at(int index) const noexcept {
        return reinterpret_cast<uint8_t*>(storage.get()) + std::ptrdiff_t{index} * rowStep;
    }

    std::shared_ptr<char> storage;
    int rowStep = 0;
};

/// Rows or columns of chroma for so many rows or columns of pixels, two of which share one.
constexpr int halfRoundedUp(int length) noexcept {
    return length / 2 + length % 2;
}

/// How many pixels share a chroma value.
enum class Sampling {
    Full,    ///< Three planes of one size (4:4:4); also R, G and B.
    Quarter, ///< Chroma planes of half the size in both directions, rounded up (4:2:0).
};

/// Three planes of bytes, either Y, Cb, Cr or R, G, B.
struct PlanarPicture {
    Vec<int, 2> size; // (height, width) in pixels
    std::array<PlaneBuffer, 3> planes;
};

/// A picture whose rows follow each other without gaps; the bytes are not initialised.
[[nodiscard]] PlanarPicture makeTightPicture(Vec<int, 2> size, Sampling sampling);

/// A picture of full sampling whose rows are padded to whole SIMD registers, because converters
/// write them; the bytes are not initialised.
/// @throws tio::Exception if a padded plane has more bytes than `int` can count.
[[nodiscard]] PlanarPicture makePaddedPicture(Vec<int, 2> size);

} // namespace tio::PixelFormat
