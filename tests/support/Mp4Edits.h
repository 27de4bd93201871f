#pragma once

#include <array>
#include <cstdint>
#include <string>

/// @file
/// Changes inside a finished MP4 or MOV file, in place. They act on its first track, which is the
/// video track of the clips made here.

namespace tio::test {

/// Replaces the display matrix in the track header (nine values in the order of the file).
/// @throws std::runtime_error when the file has no such box
void patchTkhdMatrix(const std::string& path, const std::array<int32_t, 9>& matrix);

/// Sets the display matrix as a phone that was held turned: a player has to turn the stored picture
/// clockwise by so many degrees (90, 180 or 270) to show it upright.
void setRotation(const std::string& path, int degrees);

/// Makes the edit list show only a part, in seconds from what it showed first until now. Demuxers
/// then flag the packets outside the part as discarded, but still deliver those that the part
/// needs for decoding.
/// @throws std::runtime_error when the file has no edit list
void cutByEditList(const std::string& path, double from, double length);

} // namespace tio::test
