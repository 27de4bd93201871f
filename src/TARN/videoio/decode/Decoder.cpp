#include "decode/Decoder.h"

#include "base/checks.h"
#include "ffmpeg_compat.h"

#include <new>
#include <string>
#include <thread>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

constexpr Places at("PacketDecoder");

CodecContextHandle newContext(const AVCodec* decoder) {
    CodecContextHandle context(avcodec_alloc_context3(decoder));
    if (!context)
        throw std::bad_alloc();
    return context;
}

void openContext(AVCodecContext& context, const AVCodecParameters& parameters, AVRational timeBase,
                 int threadCount) {
    checkResult(avcodec_parameters_to_context(&context, &parameters), at(54));
    context.time_base = timeBase;
    context.pkt_timebase = timeBase;
    // By the context's own id this time: taking over the parameters may have changed it.
    const AVCodec* decoder = avcodec_find_decoder(context.codec_id);
    // A decoder that cannot be flushed cannot be closed either while its threads are at work.
    const bool alone = decoder != nullptr && compat::breaksWhenFlushed(*decoder);
    context.thread_count = alone ? 1 : threadCount;
    checkResult(avcodec_open2(&context, decoder, nullptr), at(64));
}

/// One like it that has decoded nothing.
CodecContextHandle freshCopy(const AVCodecContext& used) {
    const CodecParametersHandle parameters(avcodec_parameters_alloc());
    if (!parameters)
        throw std::bad_alloc();
    checkResult(avcodec_parameters_from_context(parameters.get(), &used), at(55));
    CodecContextHandle context = newContext(used.codec);
    openContext(*context, *parameters, used.pkt_timebase, used.thread_count);
    return context;
}

} // namespace

Decoder::Decoder(int threadCount) : decoded(av_frame_alloc()), threads(threadCount) {
    constexpr int mostThreads = 1024; // beyond what any machine has a use for
    if (threadCount < 0 || threadCount > mostThreads)
        failPlainly("A decoder cannot have " + std::to_string(threadCount) + " threads; 0 to " +
                    std::to_string(mostThreads) + " are possible");
    if (!decoded)
        throw std::bad_alloc();
}

Decoder::~Decoder() = default;

void Decoder::open(const AVCodecParameters& parameters, AVRational timeBase) {
    codec = newContext(avcodec_find_decoder(parameters.codec_id));
    stage = State::Unusable;
    try {
        openContext(*codec, parameters, timeBase,
                    threads != 0 ? threads : static_cast<int>(std::thread::hardware_concurrency()));
    } catch (const Exception& failure) {
        if (isOutOfMemory(failure)) {
            codec.reset();
            stage = State::Unopened;
        }
        throw;
    }
    stage = State::Open;
}

Decoder::Sent Decoder::send(const AVPacket& packet) {
    const int result = avcodec_send_packet(codec.get(), &packet);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
        return Sent::Waits;
    if (result == AVERROR_INVALIDDATA)
        return Sent::Invalid;
    checkResult(result, at(138));
    return Sent::Taken;
}

Decoder::Received Decoder::receive() {
    // FFmpeg 7.1 crashes where the codec is not open. Other releases return this code.
    const int result = avcodec_is_open(codec.get()) != 0
                           ? avcodec_receive_frame(codec.get(), decoded.get())
                           : AVERROR(EINVAL);
    if (result == AVERROR(EAGAIN))
        return Received::NeedsPacket;
    if (result == AVERROR_EOF) {
        stage = State::Drained;
        return Received::Drained;
    }
    checkResult(result, at(161));
    return Received::Frame;
}

void Decoder::drain() {
    if (!codec)
        return;
    const int result = avcodec_send_packet(codec.get(), nullptr);
    if (result != AVERROR_EOF) // draining already
        checkResult(result, at(116));
}

void Decoder::flush() {
    // FFmpeg crashes where one is flushed that is not open.
    if (stage != State::Open && stage != State::Drained)
        return;
    if (compat::breaksWhenFlushed(*codec->codec))
        codec = freshCopy(*codec);
    else
        avcodec_flush_buffers(codec.get());
    stage = State::Open;
}

Rational Decoder::unitTime() const noexcept {
    return codec ? Rational(codec->pkt_timebase) : Rational();
}

} // namespace tio::ffmpeg::detail
