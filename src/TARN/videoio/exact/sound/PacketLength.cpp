#include "exact/sound/PacketLength.h"

#include "bitstream/BitReader.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

namespace {

// FFmpeg's profiles of AAC are the object types of MPEG-4 less one.
constexpr int lowComplexity = 1;
constexpr uint32_t usualAacFrame = 1024;

// Numbers of PCM codecs, without those of discs, which have headers.
bool isPlainPcm(int codec) {
    return codec >= AV_CODEC_ID_PCM_S16LE && codec < AV_CODEC_ID_ADPCM_IMA_QT &&
           av_get_exact_bits_per_sample(static_cast<AVCodecID>(codec)) > 0;
}

/// The size of a FLAC frame, whose code is 6 or 7, behind the frame's number.
std::optional<uint32_t> flacSizeBehindNumber(const AVPacket& packet, unsigned code) {
    constexpr int fixedBytes = 4;
    if (packet.size <= fixedBytes)
        return {};
    // The number is written as UTF-8 writes characters: the first byte tells how many there are.
    int numberBytes = 0;
    for (unsigned first = packet.data[fixedBytes]; (first & 0x80u) != 0; first <<= 1)
        ++numberBytes;
    const int at = fixedBytes + std::max(numberBytes, 1);
    if (packet.size < at + 2)
        return {};
    const uint32_t high = packet.data[at];
    return (code == 6 ? high : high << 8 | packet.data[at + 1]) + 1;
}

std::optional<uint32_t> flacSize(const AVPacket& packet) {
    const unsigned code = packet.data[2] >> 4;
    if (code == 0)
        return {};
    if (code == 1)
        return 192;
    if (code <= 5)
        return 576u << (code - 2);
    if (code <= 7)
        return flacSizeBehindNumber(packet, code);
    return 256u << (code - 8);
}

/// Samples of a full frame, from the head of the stream; 0 where it does not tell.
uint32_t alacFrameSize(const AVCodecParameters& parameters) {
    constexpr int at = 12; // behind size, name and version
    constexpr int headBytes = 36;
    constexpr uint32_t most = 1 << 24; // FFmpeg's decoder takes no more
    if (parameters.extradata_size < headBytes)
        return 0;
    BitReader bits(parameters.extradata + at, headBytes - at);
    const uint32_t size = bits.bits(32);
    return size <= most ? size : 0;
}

uint32_t frameSizeOf(const AVCodecParameters& parameters) {
    if (parameters.codec_id == AV_CODEC_ID_ALAC)
        return alacFrameSize(parameters);
    return parameters.frame_size > 0 ? static_cast<uint32_t>(parameters.frame_size) : usualAacFrame;
}

} // namespace

PacketLength::PacketLength(const AVCodecParameters& parameters)
    : kind(kindOf(parameters)),
      bitsOfAll(av_get_exact_bits_per_sample(parameters.codec_id) *
                compat::channelCount(parameters)),
      frameSize(frameSizeOf(parameters)) {}

PacketLength::Kind PacketLength::kindOf(const AVCodecParameters& parameters) {
    if (isPlainPcm(parameters.codec_id))
        return Kind::Pcm;
    if (parameters.codec_id == AV_CODEC_ID_AAC && parameters.profile == lowComplexity)
        return Kind::Aac;
    if (parameters.codec_id == AV_CODEC_ID_MP3)
        return Kind::Layer3;
    if (parameters.codec_id == AV_CODEC_ID_ALAC && alacFrameSize(parameters) > 0)
        return Kind::Alac;
    return parameters.codec_id == AV_CODEC_ID_FLAC ? Kind::Flac : Kind::Silent;
}

RunIn PacketLength::runIn() const noexcept {
    switch (kind) {
    case Kind::Pcm:
    case Kind::Flac:
    case Kind::Alac:
        return RunIn::None;
    case Kind::Aac:
        return RunIn::Overlap;
    case Kind::Layer3:
        return RunIn::Reservoir;
    case Kind::Silent:
        break;
    }
    return RunIn::Guess;
}

std::optional<uint32_t> PacketLength::of(const AVPacket& packet) {
    switch (kind) {
    case Kind::Pcm:
        return ofPcm(packet);
    case Kind::Aac:
        return ofAac(packet);
    case Kind::Layer3:
        return ofLayer3(packet);
    case Kind::Flac:
        return ofFlac(packet);
    case Kind::Alac:
        return ofAlac(packet);
    case Kind::Silent:
        break;
    }
    return {};
}

bool PacketLength::staysAs(uint32_t header) {
    if (!firstHeader)
        firstHeader = header;
    return *firstHeader == header;
}

std::optional<uint32_t> PacketLength::ofPcm(const AVPacket& packet) const {
    const int64_t bits = int64_t{packet.size} * 8;
    if (bitsOfAll <= 0 || bits % bitsOfAll != 0)
        return {};
    return static_cast<uint32_t>(bits / bitsOfAll);
}

std::optional<uint32_t> PacketLength::ofAac(const AVPacket& packet) {
    constexpr int headerBytes = 7;
    const bool hasHeader =
        packet.size >= headerBytes && packet.data[0] == 0xFF && (packet.data[1] & 0xF6u) == 0xF0u;
    if (!hasHeader)
        return frameSize;
    const bool oneBlock = (packet.data[6] & 3u) == 0;
    const uint32_t format = uint32_t{packet.data[2]} << 8 | (packet.data[3] & 0xC0u);
    return oneBlock && staysAs(format) ? std::optional(frameSize) : std::nullopt;
}

std::optional<uint32_t> PacketLength::ofLayer3(const AVPacket& packet) {
    constexpr int headerBytes = 4;
    reservoir = 0;
    if (packet.size < headerBytes || packet.data[0] != 0xFF ||
        (packet.data[1] & 0xE6u) != 0xE2u) // layer III
        return {};
    const bool fullRate = (packet.data[1] & 0x18u) == 0x18u; // MPEG-1
    const bool mono = (packet.data[3] & 0xC0u) == 0xC0u;
    const int checksumBytes = (packet.data[1] & 1u) == 0 ? 2 : 0;
    const int sideBytes = fullRate ? (mono ? 17 : 32) : (mono ? 9 : 17);
    reservoir = static_cast<uint16_t>(
        std::clamp(packet.size - headerBytes - checksumBytes - sideBytes, 0, int{UINT16_MAX}));
    const uint32_t format =
        uint32_t{packet.data[1]} << 8 | (packet.data[2] & 0x0Cu) | static_cast<uint32_t>(mono);
    if (!staysAs(format))
        return {};
    return fullRate ? 1152 : 576;
}

std::optional<uint32_t> PacketLength::ofFlac(const AVPacket& packet) {
    constexpr int smallest = 6;
    if (packet.size < smallest || packet.data[0] != 0xFF || (packet.data[1] & 0xFEu) != 0xF8u)
        return {};
    // 8 to 10 are two channels of which one is a difference.
    const unsigned assignment = packet.data[3] >> 4;
    const unsigned channels = assignment >= 8 ? 1 : assignment;
    const uint32_t format =
        (packet.data[2] & 0x0Fu) << 8 | channels << 4 | (packet.data[3] & 0x0Eu);
    return staysAs(format) ? flacSize(packet) : std::nullopt;
}

// A frame of another size than the stream's says so, in the head of each of its channels.
std::optional<uint32_t> PacketLength::ofAlac(const AVPacket& packet) const {
    enum : uint32_t { SingleChannel = 0, ChannelPair = 1, LowFrequency = 3 };
    BitReader bits(packet.data, static_cast<size_t>(packet.size));
    const uint32_t element = bits.bits(3);
    bits.bits(4 + 12); // its number, and nothing
    const bool tells = bits.bit() != 0;
    bits.bits(2 + 1); // bits stored apart, and whether there is compression
    const uint32_t size = tells ? bits.bits(32) : frameSize;
    const bool known =
        element == SingleChannel || element == ChannelPair || element == LowFrequency;
    if (bits.ranOut() || !known || size == 0 || size > frameSize)
        return {};
    return size;
}

} // namespace tio::ffmpeg::detail
