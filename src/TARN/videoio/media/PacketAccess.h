#pragma once

#include <TARN/videoio/Packet.h>

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace tio::ffmpeg::detail {

/// What encoders need of a packet beyond its public interface.
struct PacketAccess {
    /// Keeps bytes that the codec parameters refer to alive as long as any copy of the packet.
    static void keepAlive(OutputPacket& packet,
                          std::shared_ptr<std::vector<uint8_t>> bytes) noexcept {
        packet.keepAlive = std::move(bytes);
    }
};

} // namespace tio::ffmpeg::detail
