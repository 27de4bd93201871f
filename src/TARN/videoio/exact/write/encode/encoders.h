#pragma once

#include "base/handles.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/ClipWriterOptions.h>

#include <cstddef>
#include <map>
#include <string>

/// @file
/// Which encoder is meant, and whether it takes what is asked of it.

namespace tio::ffmpeg::detail {

/// The encoder of one of our names for codecs, or of FFmpeg's name.
/// @throws ClipRefusal when there is none, or one of the other kind
[[nodiscard]] const AVCodec& findEncoder(const std::string& name, AVMediaType type,
                                         const std::string& path);

/// How many places a picture may move on its way through the encoder, at most.
[[nodiscard]] std::size_t reorderReach(const AVCodec& encoder, const ClipWriterOptions& options);

/// Whether the encoder can be told to decode nothing after a key picture that is shown before it.
[[nodiscard]] bool startsAfresh(const AVCodec& encoder);

/// An encoder that is not open yet, with threads, quality, preset, bit rate and options set.
/// @throws ClipRefusal that names what it does not take
[[nodiscard]] CodecContextHandle
makePictureContext(const AVCodec& codec, const ClipWriterOptions& options, const std::string& path);
[[nodiscard]] CodecContextHandle
makeSoundContext(const AVCodec& codec, const ClipWriterOptions& options, const std::string& path);

} // namespace tio::ffmpeg::detail
