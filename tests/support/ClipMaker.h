#pragma once

#include "support/Track.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tio::test {

/// How a clip is to be made. The defaults give a second of H.264 in MP4 with B-frames and closed
/// groups of pictures; a test sets what it is about.
struct ClipPlan {
    std::string format = "mp4";          ///< muxer: "mov", "mpegts", "matroska", "avi", "h264", …
    std::string encoder = "libx264";     ///< "mpeg4", "mjpeg", "ffv1", "libvpx-vp9", …
    std::string pixelFormat = "yuv420p"; ///< FFmpeg's name; "yuv420p10le" gives a 10-bit clip
    int width = 96;
    int height = 64;

    AVRational timeBase{1, 25};
    int frameCount = 25;      ///< with `distance`: pts 0, distance, 2 × distance, …
    int64_t distance = 1;     ///< ticks from frame to frame
    std::vector<int64_t> pts; ///< when not empty: the pts of every frame, rising

    int gopSize = 12;
    int maxBFrames = 2;
    bool openGop = false;

    /// Quarter turns as a phone writes them: by how many degrees clockwise (0, 90, 180, 270) a
    /// player has to turn the stored picture. MP4 and MOV only.
    int rotation = 0;

    bool useEditList = true; ///< MP4 and MOV: whether the muxer writes one
    bool audio = false;      ///< adds a mono AAC track (a 440 Hz tone, 48 kHz) as long as the video

    Options encoderOptions; ///< on top of, or instead of, the defaults for the encoder
    Options muxerOptions;
    Options metadata; ///< of the video stream
};

/// The pts of the plan's frames in order, in the plan's time base. Frame n shows picture n of
/// `drawPicture`.
[[nodiscard]] std::vector<int64_t> plannedPts(const ClipPlan& plan);

/// Encodes the plan's pictures, for tests that change the packets before they write them.
[[nodiscard]] Track encodeVideo(const ClipPlan& plan);

/// Makes the clip.
/// @throws std::runtime_error when FFmpeg refuses the plan
void makeClip(const std::string& path, const ClipPlan& plan);

} // namespace tio::test
