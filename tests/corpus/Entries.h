#pragma once

#include "Survey.h"

#include <string>

/// @file
/// The ways into the library. Each drives one of them over a file and compares with FFmpeg called
/// directly; `folder` takes the files that are written on the way.

namespace tio::survey {

// Opening.cpp
Verdict open(const std::string& path, const std::string& folder);
Verdict openWithOptions(const std::string& path, const std::string& folder);
Verdict info(const std::string& path, const std::string& folder);
Verdict packets(const std::string& path, const std::string& folder);

// Decoding.cpp
Verdict decodeRgb(const std::string& path, const std::string& folder);
Verdict decodeNv12(const std::string& path, const std::string& folder);
Verdict packetDecoder(const std::string& path, const std::string& folder);
Verdict decodeSound(const std::string& path, const std::string& folder);

// Numbers.cpp
Verdict index(const std::string& path, const std::string& folder);
Verdict soundIndex(const std::string& path, const std::string& folder);
Verdict seek(const std::string& path, const std::string& folder);
Verdict seekInSound(const std::string& path, const std::string& folder);
Verdict storedIndex(const std::string& path, const std::string& folder);

// Reading.cpp
Verdict frameReader(const std::string& path, const std::string& folder);
Verdict provenFrameReader(const std::string& path, const std::string& folder);
Verdict frameIndexFile(const std::string& path, const std::string& folder);

// Copying.cpp
Verdict remux(const std::string& path, const std::string& folder);
Verdict transcode(const std::string& path, const std::string& folder);

// Pieces.cpp
Verdict stillImage(const std::string& path, const std::string& folder);
Verdict h264Helpers(const std::string& path, const std::string& folder);

} // namespace tio::survey
