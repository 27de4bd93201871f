#include "base/checks.h"
#include "decode/Decoder.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/PacketDecoder.h>

#include <iostream>
#include <new>
#include <utility>

namespace tio::ffmpeg {

using detail::Decoder;

PacketDecoder::PacketDecoder()
    : decoder(std::make_unique<Decoder>()), lastPresentationTime(AV_NOPTS_VALUE) {}

PacketDecoder::~PacketDecoder() = default;

bool PacketDecoder::offerPacket(std::shared_ptr<InputPacket> packet) {
    // A stream without a single packet offers an empty pointer; there is nothing to keep then.
    if (pendingPacket || !packet)
        return false;
    pendingPacket = std::move(packet);
    answer = Answer::None;
    if (decoder->state() == Decoder::State::Unopened)
        prepare();
    return true;
}

// What failed is tried once more with the next packet: memory may be there then, and pictures must
// not come out unturned because there was none for a filter. A codec that did not open for another
// reason says so itself when it is sent the packet.
void PacketDecoder::prepare() {
    const AVStream& stream = getPendingStream();
    if (decoder->state() == Decoder::State::Unopened)
        decoder->open(*stream.codecpar, stream.time_base);
    if (preparation == Preparation::Done || decoder->state() == Decoder::State::Unusable)
        return;
    const auto failed =
        preparation == Preparation::Untried ? Preparation::FailedOnce : Preparation::FailedAgain;
    try {
        onCodecOpened();
        preparation = Preparation::Done;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const Exception& failure) {
        if (!detail::isOutOfMemory(failure))
            preparation = failed;
        throw;
    } catch (...) {
        preparation = failed;
        throw;
    }
}

bool PacketDecoder::isHopeless() const noexcept {
    return decoder->state() == Decoder::State::Unusable || preparation == Preparation::FailedAgain;
}

bool PacketDecoder::isDrained() const noexcept {
    return decoder->state() == Decoder::State::Drained;
}

bool PacketDecoder::receiveFrame() {
    answer = Answer::None;
    if (pendingPacket)
        sendPendingPacket();
    if (decoder->context() == nullptr || decoder->receive() != Decoder::Received::Frame)
        return false;
    // Never two frames of the same or a falling time; an unknown time is the smallest there is.
    const int64_t time = decoder->frame().pts;
    answer = time > lastPresentationTime ? Answer::Frame : Answer::FrameDropped;
    if (answer == Answer::FrameDropped)
        return false;
    lastPresentationTime = time;
    return true;
}

void PacketDecoder::sendPendingPacket() {
    prepare();
    try {
        const auto sent = decoder->send(pendingPacket->getPacket());
        if (sent == Decoder::Sent::Waits)
            return; // sent again with the next frame
        if (sent == Decoder::Sent::Invalid)
            std::cerr << "Invalid data found, attempting to continue\n";
    } catch (const Exception& failure) {
        if (!detail::isOutOfMemory(failure)) // which says nothing of the packet
            answer = Answer::PacketFailed;
        throw;
    }
    pendingPacket.reset();
}

void PacketDecoder::skipFailedPacket() {
    if (answer == Answer::PacketFailed)
        pendingPacket.reset();
    answer = Answer::None;
}

void PacketDecoder::end() {
    decoder->drain();
}

void PacketDecoder::flush() {
    decoder->flush();
    pendingPacket.reset();
    answer = Answer::None;
    lastPresentationTime = AV_NOPTS_VALUE;
}

Rational PacketDecoder::getUnitTime() const noexcept {
    return decoder->unitTime();
}

Rational PacketDecoder::getFrameTime() const noexcept {
    return Rational(decoder->frame().pts, 1) * getUnitTime();
}

AVFrame* PacketDecoder::getFrame() const noexcept {
    return &decoder->frame();
}

AVCodecContext* PacketDecoder::getCodecContext() const noexcept {
    return decoder->context();
}

const AVStream& PacketDecoder::getPendingStream() const noexcept {
    return pendingPacket->getStream();
}

} // namespace tio::ffmpeg
