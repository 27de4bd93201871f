#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tio::test {

/// A picture as it lies in a binary PPM file of 8 bits.
struct PpmPicture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels; ///< rows of R, G, B
};

/// @throws std::runtime_error for anything else, and for a byte too few or too many
[[nodiscard]] PpmPicture readPpmFile(const std::string& path);

/// The number that the picture in the file shows.
[[nodiscard]] int pictureNumberIn(const std::string& path, int quarterTurns = 0);

} // namespace tio::test
