#pragma once

#include "support/ClipMaker.h"
#include "support/Ffmpeg.h"

#include <vector>

namespace tio::test {

/// Opens an encoder with options, of which it has to know every one.
void openEncoder(AVCodecContext& encoder, const Options& options);

/// Sends one frame (null: no more will come) and adds the packets that come out.
void encodeFrame(AVCodecContext& encoder, const AVFrame* frame, std::vector<RawPacket>& packets);

/// The track that the open encoder makes, still without packets.
[[nodiscard]] Track trackOf(const AVCodecContext& encoder);

/// A mono AAC track of a 440 Hz tone that lasts at least so many seconds.
[[nodiscard]] Track encodeTone(double seconds, bool globalHeader);

} // namespace tio::test
