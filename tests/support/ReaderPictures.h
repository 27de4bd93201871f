#pragma once

#include "support/HashedPicture.h"
#include "support/Oracle.h"
#include "support/Picture.h"

#include <TARN/videoio/FrameReader.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// @file
/// What the tests of FrameReader ask of a picture.

namespace tio::test {

inline const Frame<PixelFormat::RGB>& rgbOf(const ffmpeg::FrameReader::Picture& picture) {
    return static_cast<const Frame<PixelFormat::RGB>&>(*picture.frame);
}

/// The hash of an RGB picture, as the oracle makes it.
inline uint64_t hashOf(const ffmpeg::FrameReader::Picture& picture) {
    return hashedPicture(*picture.frame).hash;
}

/// The number that is drawn into a picture of a made clip.
inline int numberIn(const ffmpeg::FrameReader::Picture& picture) {
    const auto& rgb = rgbOf(picture);
    return readPictureNumber(rgb.plane.data(), rgb.size[1], rgb.size[0]);
}

/// In the colours that the oracle takes for granted.
inline std::unique_ptr<ffmpeg::FrameReader> openReader(const std::string& path,
                                                       ffmpeg::FrameReaderOptions options = {}) {
    options.colours = ffmpeg::Colours::Bt601;
    return std::make_unique<ffmpeg::FrameReader>(std::make_shared<ffmpeg::InputFormatContext>(path),
                                                 ffmpeg::PixelFormat::RGB, std::move(options));
}

/// Every picture that FFmpeg gives when a stream is decoded from start to end.
inline std::vector<OracleFrame> everyPictureOf(const std::string& path, int threads = 0) {
    OracleOptions options;
    options.everyPicture = true;
    options.threads = threads;
    return oracleFrames(path, options);
}

} // namespace tio::test
