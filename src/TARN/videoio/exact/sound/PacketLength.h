#pragma once

#include "exact/sound/index/SoundIndexData.h"
#include "ffmpeg_compat.h"

#include <cstdint>
#include <optional>

namespace tio::ffmpeg::detail {

/// Tells from a packet alone how many samples its decoder will give, for the codecs where packets
/// say it.
class PacketLength {
public:
    explicit PacketLength(const AVCodecParameters& parameters);

    /// Samples of each channel, before priming and padding are off; nothing where the packet does
    /// not tell, or tells of a change.
    [[nodiscard]] std::optional<uint32_t> of(const AVPacket& packet);

    /// How far before a packet of this codec decoding has to begin.
    [[nodiscard]] RunIn runIn() const noexcept;

    /// With RunIn::Reservoir, bytes of the packet last asked for that later ones may take.
    [[nodiscard]] uint16_t reservoirBytes() const noexcept { return reservoir; }

private:
    enum class Kind { Silent, Pcm, Aac, Layer3, Flac, Alac };

    static Kind kindOf(const AVCodecParameters& parameters);
    [[nodiscard]] bool staysAs(uint32_t header);
    [[nodiscard]] std::optional<uint32_t> ofPcm(const AVPacket& packet) const;
    [[nodiscard]] std::optional<uint32_t> ofAac(const AVPacket& packet);
    [[nodiscard]] std::optional<uint32_t> ofLayer3(const AVPacket& packet);
    [[nodiscard]] std::optional<uint32_t> ofFlac(const AVPacket& packet);
    [[nodiscard]] std::optional<uint32_t> ofAlac(const AVPacket& packet) const;

    Kind kind;
    int bitsOfAll;      // of one sample of all channels; PCM
    uint32_t frameSize; // AAC, ALAC
    uint16_t reservoir = 0;
    std::optional<uint32_t> firstHeader; // the part of it that must not change
};

} // namespace tio::ffmpeg::detail
