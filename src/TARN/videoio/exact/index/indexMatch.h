#pragma once

#include "exact/index/SourceIdentity.h"

#include <TARN/videoio/IndexMatch.h>

#include <string>

namespace tio::ffmpeg::detail {

/// What an index of the source with this identity is to these bytes.
/// @throws tio::Exception when they are not known; tio::ffmpeg::Exception when they cannot be read
[[nodiscard]] IndexMatch matchOf(const SourceIdentity& identity, SourceBytes& bytes);

/// Refuses an index of another source, where both are known.
/// @param name  of the source
/// @throws IndexMismatch
void requireSameSource(const SourceIdentity& identity, SourceBytes& bytes, const std::string& name);

/// @throws IndexMismatch
[[noreturn]] void failMismatch(const std::string& name, bool hasChanged);

} // namespace tio::ffmpeg::detail
