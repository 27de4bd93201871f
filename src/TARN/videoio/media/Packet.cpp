#include "base/checks.h"
#include "base/ticks.h"
#include "base/vocabulary.h"
#include "ffmpeg_compat.h"
#include "media/ownedPacket.h"

#include <TARN/videoio/Packet.h>

#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Places at("Packet");

// As for the data: when memory runs out, an Exception says so.
detail::OwnedPacket makeBlankPacket() {
    detail::OwnedPacket packet(av_packet_alloc(), detail::freePacket);
    if (!packet)
        detail::checkResult(AVERROR(ENOMEM), at(40));
    return packet;
}

} // namespace

Packet::Packet(const AVPacket* source, Rational timeBase)
    : packet(makeBlankPacket()), unitTime(timeBase) {
    detail::checkResult(av_packet_ref(packet.get(), source), at(46));
}

Packet::Packet(const Packet& other) : packet(makeBlankPacket()) {
    if (other.packet) // a moved-from packet has nothing to share
        detail::checkResult(av_packet_ref(packet.get(), other.packet.get()), at(59));
    unitTime = other.unitTime;
}

// The time base stays: callers re-time packets by assigning into one that counts in the base they
// want. What the packet held is released first, so assignment to itself empties it.
Packet& Packet::operator=(const Packet& other) {
    if (!packet) // moved from: FFmpeg must not be given a null packet
        packet = makeBlankPacket();
    av_packet_unref(packet.get());
    if (other.packet)
        detail::checkResult(av_packet_ref(packet.get(), other.packet.get()), at(78));
    return *this;
}

// The time base is not carried over: whoever moves a packet to re-time it gives it one of its own.
Packet::Packet(Packet&& other) noexcept : packet(std::move(other.packet)) {}

Packet& Packet::operator=(Packet&& other) noexcept {
    packet = std::move(other.packet);
    unitTime = other.unitTime;
    return *this;
}

Packet::~Packet() = default;

Rational Packet::getPts() const noexcept {
    return Rational(packet->pts, 1) * unitTime;
}

Rational Packet::getDts() const noexcept {
    return Rational(packet->dts, 1) * unitTime;
}

bool Packet::hasPts() const noexcept {
    return packet->pts != AV_NOPTS_VALUE;
}

bool Packet::hasDts() const noexcept {
    return packet->dts != AV_NOPTS_VALUE;
}

Rational Packet::getDuration() const noexcept {
    return Rational(packet->duration, 1) * unitTime;
}

void Packet::setPts(Rational time) {
    const int64_t ticks = detail::wholeTicks(time, unitTime);
    const int64_t delay = detail::wrappingDifference(packet->dts, packet->pts);
    packet->dts = detail::wrappingSum(ticks, delay);
    packet->pts = ticks;
}

void Packet::setDts(Rational time) {
    packet->dts = detail::wholeTicks(time, unitTime);
}

const unsigned char* Packet::getData(int& size) const noexcept {
    size = packet->size;
    return packet->data;
}

InputPacket::InputPacket(const AVPacket* source, const AVStream* origin)
    : Packet(source, Rational(origin->time_base)), stream(origin) {}

InputPacket::InputPacket(const InputPacket& other) = default;
InputPacket& InputPacket::operator=(const InputPacket& other) = default;
InputPacket::~InputPacket() = default;

OutputPacket::OutputPacket(const AVPacket* source, const AVCodecParameters* parameters,
                           Rational timeBase)
    : Packet(source, timeBase), codecParameters(parameters) {}

OutputPacket::OutputPacket(const InputPacket& input)
    : OutputPacket(&input.getPacket(), input.getStream().codecpar, input.getUnitTime()) {}

OutputPacket::OutputPacket(const OutputPacket& other) = default;
OutputPacket& OutputPacket::operator=(const OutputPacket& other) = default;
OutputPacket::~OutputPacket() = default;

Codec OutputPacket::getEncodingCodec() const noexcept {
    return detail::codecFromId(codecParameters->codec_id);
}

AudioPacketInfo::AudioPacketInfo(const InputPacket& packet) noexcept
    : parameters(packet.getStream().codecpar) {}

AudioPacketInfo::AudioPacketInfo(const OutputPacket& packet) noexcept
    : parameters(&packet.getCodecParameters()) {}

int AudioPacketInfo::getSampleRate() const noexcept {
    return parameters->sample_rate;
}

int AudioPacketInfo::getChannelCount() const noexcept {
    return compat::channelCount(*parameters);
}

int AudioPacketInfo::getChannelLayout() const noexcept {
    return static_cast<int>(static_cast<uint32_t>(compat::channelMask(*parameters)));
}

} // namespace tio::ffmpeg
