#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

/// @file
/// The clips over which a reader has to be exact. docs/testing.md says what is odd about each.

namespace tio::test {

/// How a clip can be read exactly.
enum class Access {
    Forward,    ///< from start to end only
    EveryOrder, ///< also by frame number: groups of pictures are closed, times are complete
};

/// A clip that is made on the spot.
struct MadeClip {
    std::string name;      ///< CamelCase, for the name of the test
    std::string extension; ///< of the file; FFmpeg still goes by what is inside
    Access access;
    std::function<void(const std::string& path)> make;
};

[[nodiscard]] const std::vector<MadeClip>& madeClips();

/// A clip of the real media folder, by its name there.
struct RealClip {
    std::string file;
    Access access;
};

[[nodiscard]] const std::vector<RealClip>& realClips();

/// What a failing test calls its clip.
inline void PrintTo(const MadeClip& clip, std::ostream* out) {
    *out << clip.name;
}
inline void PrintTo(const RealClip& clip, std::ostream* out) {
    *out << clip.file;
}

} // namespace tio::test
