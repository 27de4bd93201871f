#pragma once

#include "base/handles.h"
#include "ffmpeg_compat.h"

#include <memory>
#include <new>

namespace tio::ffmpeg::detail {

/// Owns a packet, in the form in which public headers can say it.
using OwnedPacket = std::unique_ptr<AVPacket, void (*)(AVPacket*)>;

inline void freePacket(AVPacket* packet) {
    Release()(packet);
}

/// A blank packet.
/// @throws std::bad_alloc
[[nodiscard]] inline OwnedPacket ownedPacket() {
    OwnedPacket packet(av_packet_alloc(), freePacket);
    if (!packet)
        throw std::bad_alloc();
    return packet;
}

} // namespace tio::ffmpeg::detail
