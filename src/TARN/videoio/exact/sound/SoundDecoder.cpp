#include "exact/sound/SoundDecoder.h"

#include "base/checks.h"
#include "base/hash.h"

#include <TARN/videoio/Exception.h>

namespace tio::ffmpeg::detail {

namespace {

/// Damage fails the same way each time, and is passed over. What is missing because memory ran out
/// would be taken for something that the stream does not have.
template <typename Call>
void passOverDamage(Call call) {
    try {
        call();
    } catch (const Exception& failure) {
        if (isOutOfMemory(failure))
            throw;
    }
}

} // namespace

SoundDecoder::SoundDecoder(const AVCodecParameters& parameters, AVRational timeBase, int threads)
    : decoder(threads) {
    decoder.open(parameters, timeBase);
    decoder.context()->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;
}

void SoundDecoder::send(AVPacket& packet, uint32_t number) {
    latestSent = number;
    packet.pts = number;
    packet.dts = number;
    passOverDamage([&] { static_cast<void>(decoder.send(packet)); });
}

void SoundDecoder::finish() {
    passOverDamage([&] { decoder.drain(); });
}

bool SoundDecoder::receive() {
    bool received = false;
    passOverDamage([&] { received = decoder.receive() == Decoder::Received::Frame; });
    // A frame without a number, or with one that no packet had, is one more of the packet before.
    if (received && frame().pts >= 0 && frame().pts <= latestSent)
        current = static_cast<uint32_t>(frame().pts);
    return received;
}

uint64_t hashSamples(const AVFrame& frame, uint64_t seed) {
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const bool planar = av_sample_fmt_is_planar(format) != 0;
    const int channels = compat::channelCount(frame);
    const auto bytes = static_cast<size_t>(av_get_bytes_per_sample(format)) *
                       static_cast<size_t>(frame.nb_samples) *
                       static_cast<size_t>(planar ? 1 : channels);
    for (int plane = 0; plane < (planar ? channels : 1); ++plane)
        seed = hashBytes(frame.extended_data[plane], bytes, seed);
    return seed;
}

} // namespace tio::ffmpeg::detail
