#include "exact/write/encode/SoundEncoder.h"

#include "base/checks.h"
#include "exact/write/encode/encoders.h"
#include "exact/write/refusal.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

constexpr int usualBlock = 1024; // samples, where the codec takes any number

constexpr Places at("SoundEncoder");

// From the one that loses nothing of a float downward.
AVSampleFormat finestFormat(const AVCodec& codec) {
    const auto able = compat::sampleFormats(codec);
    for (const AVSampleFormat format :
         {AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_S32, AV_SAMPLE_FMT_S32P,
          AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_S16P}) {
        if (std::find(able.begin(), able.end(), format) != able.end())
            return format;
    }
    return AV_SAMPLE_FMT_NONE;
}

/// The whole number of so many bits that stands for a sample, full scale being 1.
int64_t quantised(float sample, int bits) {
    const double scale = std::ldexp(1.0, bits - 1);
    return std::llround(std::clamp(double{sample} * scale, -scale, scale - 1));
}

template <typename Integer>
void storeInteger(uint8_t* to, float sample, int bits) {
    constexpr int width = std::numeric_limits<Integer>::digits + 1;
    const int unused = std::max(width - bits, 0);
    const auto value = static_cast<Integer>(quantised(sample, bits) * (int64_t{1} << unused));
    std::memcpy(to, &value, sizeof value);
}

// What 24-bit codecs take of 32 bits are the upper ones.
int significantBits(const AVCodecContext& context) {
    const int sampleBits = 8 * av_get_bytes_per_sample(context.sample_fmt);
    const int stored = av_get_exact_bits_per_sample(context.codec_id);
    constexpr int bitsOfLossless = 24;
    if (context.codec_id == AV_CODEC_ID_FLAC || context.codec_id == AV_CODEC_ID_ALAC)
        return std::min(sampleBits, bitsOfLossless);
    return stored > 0 ? std::min(stored, sampleBits) : sampleBits;
}

} // namespace

void requireRate(const AVCodec& codec, int rate, const std::string& path) {
    const auto able = compat::sampleRates(codec);
    if (able.empty() || std::find(able.begin(), able.end(), rate) != able.end())
        return;
    std::string list;
    for (const int one : able)
        list += (list.empty() ? "" : ", ") + std::to_string(one);
    refuse(path, std::string("the encoder ") + codec.name + " cannot take " + std::to_string(rate) +
                     " samples a second; it can take " + list);
}

SoundEncoder::SoundEncoder(const AVCodec& codec, const ClipWriterOptions& options, int channels,
                           std::string path)
    : name(std::move(path)),
      context(makeSoundContext(codec, options, name)),
      channelsOfAll(channels) {
    requireRate(codec, options.audioRate, name);
    context->sample_rate = options.audioRate;
    context->time_base = {1, options.audioRate};
    context->sample_fmt = finestFormat(codec);
    if (context->sample_fmt == AV_SAMPLE_FMT_NONE)
        refuse(name, std::string("the encoder ") + codec.name + " takes no samples from memory");
    context->bits_per_raw_sample = significantBits(*context);
    compat::setDefaultChannels(*context, channels);
    if (avcodec_open2(context.get(), &codec, nullptr) < 0)
        refuse(name, std::string("the encoder ") + codec.name + " cannot take " +
                         std::to_string(channels) + " channels of " +
                         std::to_string(options.audioRate) + " samples a second");
    blockLength = context->frame_size > 0 ? context->frame_size : usualBlock;
}

void SoundEncoder::encode(const float* samples, std::size_t count, const PacketSink& sink) {
    const auto width = static_cast<std::size_t>(channelsOfAll);
    const std::size_t block = static_cast<std::size_t>(blockLength) * width;
    taken += static_cast<int64_t>(count);
    const float* next = samples;
    const float* const end = samples + count * width;
    while (next != end) {
        if (rest.empty() && static_cast<std::size_t>(end - next) >= block) {
            send(next, blockLength, sink);
            next += block;
            continue;
        }
        const std::size_t part =
            std::min(block - rest.size(), static_cast<std::size_t>(end - next));
        rest.insert(rest.end(), next, next + part);
        next += part;
        if (rest.size() == block) {
            send(rest.data(), blockLength, sink);
            rest.clear();
        }
    }
}

void SoundEncoder::flush(const PacketSink& sink) {
    if (!rest.empty())
        send(rest.data(), static_cast<int>(rest.size()) / channelsOfAll, sink);
    rest.clear();
    checkResult(avcodec_send_frame(context.get(), nullptr), at(30), name);
    drain(sink);
    // Part of codec(), so that a file's head has it from the first: the muxer of MP4 loses memory
    // where it comes later, beside pictures that need no head. The encoder's own copy is spoilt
    // when the encoder is asked once more.
    std::copy(head.begin(), head.end(), context->extradata);
}

void SoundEncoder::send(const float* samples, int count, const PacketSink& sink) {
    const FrameHandle frame(av_frame_alloc());
    checkResult(frame ? 0 : AVERROR(ENOMEM), at(40), name);
    frame->format = context->sample_fmt;
    frame->nb_samples = count;
    frame->sample_rate = context->sample_rate;
    compat::copyChannels(*frame, *context);
    checkResult(av_frame_get_buffer(frame.get(), 0), at(41), name);
    fill(*frame, samples);
    frame->pts = sent;
    checkResult(avcodec_send_frame(context.get(), frame.get()), at(42), name);
    sent += count;
    drain(sink);
}

void SoundEncoder::fill(AVFrame& frame, const float* samples) const {
    const auto width = static_cast<std::size_t>(channelsOfAll);
    const bool planar = av_sample_fmt_is_planar(context->sample_fmt) != 0;
    const auto bytes = static_cast<std::size_t>(av_get_bytes_per_sample(context->sample_fmt));
    const int bits = significantBits(*context);
    const AVSampleFormat kind = av_get_packed_sample_fmt(context->sample_fmt);
    for (std::size_t channel = 0; channel < width; ++channel) {
        uint8_t* to = planar ? frame.extended_data[channel] : frame.data[0] + channel * bytes;
        const std::size_t step = planar ? bytes : bytes * width;
        const float* from = samples + channel;
        for (int i = 0; i < frame.nb_samples; ++i, to += step, from += width) {
            if (kind == AV_SAMPLE_FMT_FLT)
                std::memcpy(to, from, sizeof *from);
            else if (kind == AV_SAMPLE_FMT_S32)
                storeInteger<int32_t>(to, *from, bits);
            else
                storeInteger<int16_t>(to, *from, bits);
        }
    }
}

void SoundEncoder::drain(const PacketSink& sink) {
    while (true) {
        const PacketHandle packet(av_packet_alloc());
        checkResult(packet ? 0 : AVERROR(ENOMEM), at(50), name);
        const int received = avcodec_receive_packet(context.get(), packet.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF)
            return;
        checkResult(received, at(51), name);
        if (!takeHead(*packet))
            sink(*packet);
    }
}

// At its end FLAC's encoder tells in a packet without samples how many there were, and their MD5.
bool SoundEncoder::takeHead(const AVPacket& packet) {
    if (packet.size > 0)
        return false;
    for (int i = 0; i < packet.side_data_elems; ++i) {
        const AVPacketSideData& side = packet.side_data[i];
        if (side.type == AV_PKT_DATA_NEW_EXTRADATA &&
            static_cast<int64_t>(side.size) == context->extradata_size) {
            head.assign(side.data, side.data + side.size);
            return true;
        }
    }
    return false;
}

} // namespace tio::ffmpeg::detail
