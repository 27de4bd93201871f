#pragma once

#include "Survey.h"
#include "support/HashedPicture.h"
#include "support/Oracle.h"

#include <TARN/videoio/Types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tio::survey {

/// How both sides write a picture.
[[nodiscard]] std::string pictureLine(const std::string& time, int width, int height,
                                      uint64_t hash);
[[nodiscard]] std::string pictureLine(const test::OracleFrame& frame, ffmpeg::PixelFormat format);

/// The picture of a frame; what hashing it takes is not the library's time.
[[nodiscard]] test::HashedPicture hashed(const FrameBase& frame);

/// What a verdict says where FFmpeg, called directly, gives other pictures once it may use no
/// memory twice: a damaged picture is not written as a whole, and shows what was there before.
extern const std::string unsteady;

/// How often and with what FFmpeg, called directly, decodes a file.
struct DirectWay {
    bool oneThread = false;    ///< otherwise as many threads as the library takes
    bool freshBuffers = false; ///< use no memory twice
};

/// Every picture that FFmpeg, called directly, gives from start to end, whatever its decoder fails
/// at on the way, hashed in both formats. The same call again costs nothing: most of the ways into
/// the library are compared with the same pictures. For one thread.
/// @throws std::runtime_error as test::oracleFrames does
[[nodiscard]] const std::vector<test::OracleFrame>& directPictures(const std::string& path,
                                                                   DirectWay way = {});

} // namespace tio::survey
