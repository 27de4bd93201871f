#include "base/Options.h"
#include "base/checks.h"
#include "base/handles.h"
#include "base/initialise.h"
#include "base/parseInteger.h"
#include "base/ticks.h"
#include "ffmpeg_compat.h"
#include "media/PacketAccess.h"
#include "media/avRational.h"

#include <TARN/videoio/PacketEncoder.h>

#include <algorithm>
#include <new>
#include <thread>

namespace tio::ffmpeg {

namespace {

constexpr detail::Places at("PacketEncoder");

} // namespace

PacketEncoder::PacketEncoder(Rational unitTime, AVCodecID codecId)
    : timeBase(unitTime), lastPacketDts(AV_NOPTS_VALUE) {
    detail::initialiseOnce();
    detail::CodecContextHandle context(avcodec_alloc_context3(findEncoder(codecId)));
    detail::CodecParametersHandle parameters(avcodec_parameters_alloc());
    if (!context || !parameters)
        throw std::bad_alloc();
    codecContext = context.release();
    codecParameters = parameters.release();
    codecContext->thread_count = static_cast<int>(std::thread::hardware_concurrency());
}

// The context is closed, but its own block, about a kilobyte, is not freed where FFmpeg can do the
// one without the other, and a frame that flush() did not free stays: docs/behaviour.md.
PacketEncoder::~PacketEncoder() {
    avcodec_parameters_free(&codecParameters);
    compat::closeEncoder(codecContext);
}

const AVCodec* PacketEncoder::findEncoder(AVCodecID codecId) {
    const AVCodec* codec = avcodec_find_encoder(codecId);
    if (codec == nullptr)
        detail::failAssertion("Could not find ffmpeg's h264 encoder", "codec", at(51));
    return codec;
}

void PacketEncoder::setOption(AVDictionary** dictionary, const char* key, const char* value,
                              int flags) {
    detail::checkResult(av_dict_set(dictionary, key, value, flags), at(214));
}

void PacketEncoder::openCodec(AVDictionary* options) {
    detail::Options owned(options);
    codecContext->time_base = detail::toAvRational(timeBase);
    codecContext->max_b_frames = 0; // packets in the order of presentation
    codecContext->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (const AVDictionaryEntry* bitrate = owned.find("bitrate"))
        setBitrate(bitrate->value);
    detail::checkResult(avcodec_open2(codecContext, codecContext->codec, owned.address()), at(82));
    detail::checkResult(avcodec_parameters_from_context(codecParameters, codecContext), at(87));
    if (codecContext->extradata != nullptr && codecContext->extradata_size != 0)
        extradata = std::make_shared<std::vector<uint8_t>>(
            codecContext->extradata, codecContext->extradata + codecContext->extradata_size);
}

void PacketEncoder::setBitrate(const char* value) {
    const int rate = detail::parseInteger(value);
    const int half = rate / 2;
    codecContext->bit_rate = rate;
    codecContext->bit_rate_tolerance = half;
    codecContext->rc_max_rate = int64_t{rate} + half;
    codecContext->rc_min_rate = int64_t{rate} - half;
    codecContext->rc_buffer_size = rate;
}

void PacketEncoder::requireFrame() const {
    if (frame == nullptr)
        detail::failAssertion("No frame may follow a flush", "frame", at(120));
}

void PacketEncoder::setFrameTime(Rational time) {
    requireFrame();
    frame->pts = detail::wholeTicks(time, timeBase);
}

Rational PacketEncoder::getFrameTime() const {
    requireFrame();
    return Rational(frame->pts, 1) * timeBase;
}

std::vector<OutputPacket> PacketEncoder::encodeFrameAt(Rational time) {
    setFrameTime(time);
    return encodeFrame();
}

std::vector<OutputPacket> PacketEncoder::encodeFrame() {
    auto packets = receivePackets();
    detail::checkResult(avcodec_send_frame(codecContext, frame), at(140));
    if (frame != nullptr && codecContext->codec_type == AVMEDIA_TYPE_VIDEO)
        sentTimes.push_back(frame->pts);
    for (const OutputPacket& packet : receivePackets())
        packets.push_back(packet); // never by assignment, which would keep the wrong time base
    return {packets.begin(), packets.end()};
}

std::vector<OutputPacket> PacketEncoder::flush() {
    av_frame_free(&frame);
    return encodeFrame(); // without a frame: the end of the stream
}

std::deque<OutputPacket> PacketEncoder::receivePackets() {
    const detail::PacketHandle packet(av_packet_alloc());
    if (!packet)
        throw std::bad_alloc();
    std::deque<OutputPacket> packets;
    while (true) {
        const int result = avcodec_receive_packet(codecContext, packet.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return packets;
        detail::checkResult(result, at(191));
        packets.push_back(takePacket(*packet));
    }
}

OutputPacket PacketEncoder::takePacket(AVPacket& packet) {
    av_packet_rescale_ts(&packet, codecContext->time_base, detail::toAvRational(timeBase));
    if (codecContext->codec_type == AVMEDIA_TYPE_VIDEO)
        giveVideoDuration(packet);
    OutputPacket taken(&packet, codecParameters, timeBase);
    detail::PacketAccess::keepAlive(taken, extradata);
    av_packet_unref(&packet);
    return taken;
}

// The H.264 encoder leaves durations out. The last picture of an MP4 track would then last for no
// time at all, and FFmpeg's reader drops such a picture. Any packet may be the last, so that each
// gets what suits the last one: no more than the two distances before it, since one of them may be
// a pause, nor than the distance to the next picture, as far as that is known.
void PacketEncoder::giveVideoDuration(AVPacket& packet) {
    const bool first = lastPacketDts == AV_NOPTS_VALUE;
    const int64_t distance = first ? 1 : detail::wrappingDifference(packet.dts, lastPacketDts);
    packet.duration = lastDistance > 0 ? std::min(distance, lastDistance) : distance;
    while (!sentTimes.empty() && sentTimes.front() <= packet.pts)
        sentTimes.pop_front();
    if (!sentTimes.empty())
        packet.duration =
            std::min(packet.duration, detail::wrappingDifference(sentTimes.front(), packet.pts));
    lastDistance = first ? 0 : distance;
    lastPacketDts = packet.dts;
}

} // namespace tio::ffmpeg
