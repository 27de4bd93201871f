#include "exact/sound/SoundRun.h"

#include "base/checks.h"

#include <new>

namespace tio::ffmpeg::detail {

namespace {

// A demuxer may change a stream's parameters on its way. A decoder has to begin with what one from
// the start begins with.
CodecParametersHandle copyOf(const AVCodecParameters& parameters) {
    CodecParametersHandle copy(avcodec_parameters_alloc());
    if (!copy)
        throw std::bad_alloc();
    checkResult(avcodec_parameters_copy(copy.get(), &parameters), {"SoundRun", 1});
    return copy;
}

} // namespace

SoundRun::SoundRun(const Source& source, const IndexData& index, int threadCount)
    : packets(source, index.stream),
      cursor(packets, index),
      parameters(copyOf(*packets.stream().codecpar)),
      timeBase(packets.stream().time_base),
      threads(threadCount) {
    requireDecoder(source.name());
    makeDecoder();
}

void SoundRun::requireDecoder(const std::string& name) const {
    if (avcodec_find_decoder(parameters->codec_id) == nullptr)
        checkResult(AVERROR_DECODER_NOT_FOUND, {"SoundRun", 2},
                    std::string(avcodec_get_name(parameters->codec_id)) + " of \"" + name + "\"");
}

void SoundRun::makeDecoder() {
    decoder = std::make_unique<SoundDecoder>(*parameters, timeBase, threads);
    ended = false;
    lost = false;
}

bool SoundRun::enterAt(uint32_t number) {
    makeDecoder();
    lost = !cursor.goTo(number);
    return !lost;
}

void SoundRun::startOver() {
    makeDecoder();
    cursor.startOver();
}

bool SoundRun::next() {
    while (!decoder->receive())
        if (ended || lost || !feed())
            return false;
    return true;
}

/// Gives the decoder the next packet, or word that there is none.
/// @returns false when the packets are not those of the index
bool SoundRun::feed() {
    const uint32_t number = cursor.nextNumber();
    switch (cursor.advance()) {
    case PacketCursor::Step::Packet:
        decoder->send(packets.packet(), number);
        ++packetsSent;
        return true;
    case PacketCursor::Step::End:
        decoder->finish();
        ended = true;
        return true;
    case PacketCursor::Step::Lost:
        break;
    }
    lost = true;
    return false;
}

SoundRun::Work SoundRun::work() const {
    return {packets.openingCount(), packets.seekCount(), packetsSent};
}

} // namespace tio::ffmpeg::detail
