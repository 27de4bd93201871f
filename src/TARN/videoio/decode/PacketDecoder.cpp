#include "base/checks.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/PacketDecoder.h>

#include <iostream>
#include <new>
#include <thread>
#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Location at(int number) {
    return {"PacketDecoder", number};
}

void open(AVCodecContext& context, const AVCodecParameters& parameters, AVRational timeBase,
          int threadCount) {
    detail::checkResult(avcodec_parameters_to_context(&context, &parameters), at(54));
    context.time_base = timeBase;
    context.pkt_timebase = timeBase;
    // By the context's own id this time: taking over the parameters may have changed it.
    const AVCodec* decoder = avcodec_find_decoder(context.codec_id);
    // A decoder that cannot be flushed cannot be closed either while its threads are at work.
    const bool alone = decoder != nullptr && compat::breaksWhenFlushed(*decoder);
    context.thread_count = alone ? 1 : threadCount;
    detail::checkResult(avcodec_open2(&context, decoder, nullptr), at(64));
}

detail::CodecContextHandle newContext(const AVCodec* decoder) {
    detail::CodecContextHandle context(avcodec_alloc_context3(decoder));
    if (!context)
        throw std::bad_alloc();
    return context;
}

/// One like it that has decoded nothing.
detail::CodecContextHandle openedAnew(const AVCodecContext& used) {
    const detail::CodecParametersHandle parameters(avcodec_parameters_alloc());
    if (!parameters)
        throw std::bad_alloc();
    detail::checkResult(avcodec_parameters_from_context(parameters.get(), &used), at(55));
    detail::CodecContextHandle context = newContext(used.codec);
    open(*context, *parameters, used.pkt_timebase, used.thread_count);
    return context;
}

} // namespace

PacketDecoder::PacketDecoder() : PacketDecoder(0) {}

PacketDecoder::PacketDecoder(int threadCount)
    : frame(av_frame_alloc()), lastPresentationTime(AV_NOPTS_VALUE), threads(threadCount) {
    if (!frame)
        throw std::bad_alloc();
}

PacketDecoder::~PacketDecoder() = default;

bool PacketDecoder::offerPacket(std::shared_ptr<InputPacket> packet) {
    // A stream without a single packet offers an empty pointer; there is nothing to keep then.
    if (pendingPacket || !packet)
        return false;
    pendingPacket = std::move(packet);
    if (!codecContext)
        openCodec(pendingPacket->getStream());
    return true;
}

void PacketDecoder::openCodec(const AVStream& stream) {
    codecContext = newContext(avcodec_find_decoder(stream.codecpar->codec_id));
    open(*codecContext, *stream.codecpar, stream.time_base,
         threads != 0 ? threads : static_cast<int>(std::thread::hardware_concurrency()));
    prepareOnce();
}

// Where it failed, once more with the next packet: without it pictures would come out as they are
// stored. A codec that did not open at all says so when it is sent the packet.
void PacketDecoder::prepareOnce() {
    if (prepared || !pendingPacket || !codecContext || avcodec_is_open(codecContext.get()) == 0)
        return;
    onCodecOpened();
    prepared = true;
}

bool PacketDecoder::receiveAnyFrame() {
    dropped = false;
    if (!codecContext)
        return false;
    sendPendingPacket();
    const int result = avcodec_receive_frame(codecContext.get(), frame.get());
    outOfMemory = result == AVERROR(ENOMEM);
    drained = result == AVERROR_EOF;
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
        return false;
    detail::checkResult(result, at(161));
    return true;
}

bool PacketDecoder::receiveFrame() {
    if (!receiveAnyFrame())
        return false;
    // Never two frames of the same or a falling time; an unknown time is the smallest there is.
    dropped = frame->pts <= lastPresentationTime;
    if (dropped)
        return false;
    lastPresentationTime = frame->pts;
    return true;
}

void PacketDecoder::sendPendingPacket() {
    sendFailed = false;
    if (!pendingPacket)
        return;
    prepareOnce();
    const int result = avcodec_send_packet(codecContext.get(), &pendingPacket->getPacket());
    outOfMemory = result == AVERROR(ENOMEM);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
        return; // sent again with the next frame
    if (result == AVERROR_INVALIDDATA) {
        std::cerr << "Invalid data found, attempting to continue\n";
        ++invalidPackets;
    } else {
        sendFailed = result < 0 && !outOfMemory; // which says nothing of the packet
        detail::checkResult(result, at(138));
    }
    pendingPacket.reset();
}

void PacketDecoder::skipFailedPacket() {
    if (sendFailed)
        pendingPacket.reset();
    sendFailed = false;
}

void PacketDecoder::end() {
    if (!codecContext)
        return;
    const int result = avcodec_send_packet(codecContext.get(), nullptr);
    outOfMemory = result == AVERROR(ENOMEM);
    if (result != AVERROR_EOF) // draining already
        detail::checkResult(result, at(116));
}

void PacketDecoder::flush() {
    // A codec that failed to open must not be flushed: FFmpeg would crash.
    if (codecContext && avcodec_is_open(codecContext.get()) != 0) {
        if (compat::breaksWhenFlushed(*codecContext->codec))
            codecContext = openedAnew(*codecContext);
        else
            avcodec_flush_buffers(codecContext.get());
    }
    pendingPacket.reset();
    drained = false;
    dropped = false;
    sendFailed = false;
    lastPresentationTime = AV_NOPTS_VALUE;
}

Rational PacketDecoder::getUnitTime() const {
    return codecContext ? Rational(codecContext->pkt_timebase) : Rational();
}

Rational PacketDecoder::getFrameTime() const {
    return Rational(frame->pts, 1) * getUnitTime();
}

} // namespace tio::ffmpeg
