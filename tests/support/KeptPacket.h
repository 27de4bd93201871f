#pragma once

#include "media/PacketAccess.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

/// @file
/// A packet that keeps bytes alive, as those of encoders do.

namespace tio::test {

class KeptPacket : public ffmpeg::OutputPacket {
public:
    explicit KeptPacket(const ffmpeg::OutputPacket& other) : OutputPacket(other) {}

    void setKeepAlive(std::shared_ptr<std::vector<uint8_t>> bytes) {
        ffmpeg::detail::PacketAccess::keepAlive(*this, std::move(bytes));
    }
};

} // namespace tio::test
