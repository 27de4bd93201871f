#pragma once

#include <TARN/videoio/Export.h>

#include <string>
#include <vector>

/// @file
/// Which FFmpeg is at work: the one that the library was compiled against and the one that the
/// system loaded. FFmpeg promises that a library works with a loaded release of the same major
/// number that is not older.

namespace tio::ffmpeg {

/// A version of one of FFmpeg's libraries, such as 59.27.100.
struct VersionNumber {
    int major = 0;
    int minor = 0;
    int micro = 0;

    /// The three numbers with dots between.
    [[nodiscard]] std::string toString() const {
        return std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(micro);
    }
};

/// One of FFmpeg's libraries.
struct LibraryVersion {
    std::string name;       ///< such as "libavformat"
    VersionNumber compiled; ///< of the headers that this library was compiled with
    VersionNumber loaded;   ///< of the library in this process
};

/// Every library of FFmpeg that this library calls.
/// Thread rule: any thread, at any time.
[[nodiscard]] TARN_VIDEOIO_API std::vector<LibraryVersion> versions();

/// FFmpeg's own name for the release that is loaded, such as "5.1.9-0+deb12u1"; whoever built
/// FFmpeg chose it.
/// Thread rule: any thread, at any time.
[[nodiscard]] TARN_VIDEOIO_API std::string loadedRelease();

} // namespace tio::ffmpeg
