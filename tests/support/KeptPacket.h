#pragma once

#include <TARN/videoio/Packet.h>

/// @file
/// A packet that keeps bytes alive, as those of encoders do.

namespace tio::test {

class KeptPacket : public ffmpeg::OutputPacket {
public:
    explicit KeptPacket(const ffmpeg::OutputPacket& other) : OutputPacket(other) {}

    using OutputPacket::setKeepAlive;
};

} // namespace tio::test
