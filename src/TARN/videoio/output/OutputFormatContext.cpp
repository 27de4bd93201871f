#include "base/checks.h"
#include "base/ticks.h"
#include "ffmpeg_compat.h"
#include "media/avRational.h"

#include <TARN/core/Rational.h>
#include <TARN/videoio/OutputFormatContext.h>

#include <new>
#include <string>
#include <utility>

namespace tio::ffmpeg {

namespace {

using Rational = tio::Rational<1, int64_t>;

constexpr detail::Location at(int number) {
    return {"OutputFormatContext", number};
}

void describe(AVStream& stream, const AVCodecParameters& parameters, int rotation) {
    detail::checkResult(avcodec_parameters_copy(stream.codecpar, &parameters), at(90));
    stream.codecpar->codec_tag = 0; // the input's tag may mean something else in MP4
    compat::dropDisplayMatrix(*stream.codecpar);
    if (rotation != 0)
        detail::checkResult(compat::setRotation(stream, rotation), at(91));
}

AVPacket blankPacket() {
    AVPacket packet;
    compat::makeBlank(packet);
    return packet;
}

} // namespace

/// What is needed until the header is written.
struct OutputFormatContext::InitializationState {
    uint32_t expectedStreamCount = 0;
    std::string path;
};

OutputFormatContext::OutputFormatContext(std::string filePath)
    : timeOffset(AV_NOPTS_VALUE),
      initializationState(std::make_shared<InitializationState>()),
      path(std::move(filePath)) {
    initializationState->path = path;
    detail::checkResult(avformat_alloc_output_context2(&formatContext, nullptr, "mp4", nullptr),
                        at(40));
}

// The trailer is attempted whatever happened before, its result ignored. FFmpeg crashes on a
// trailer without a header, so that one call depends on the header; closing and freeing do not.
// Kept: packets still held here are neither written nor released, only their places in the list.
OutputFormatContext::~OutputFormatContext() {
    letGo(adoptedPackets.size());
    if (readyForPackets() && !finished)
        av_write_trailer(formatContext);
    avio_closep(&formatContext->pb);
    avformat_free_context(formatContext);
}

void OutputFormatContext::addExpectedStream() {
    if (readyForPackets())
        detail::failAssertion("Streams must be made before the header of \"" + path +
                                  "\" is written",
                              "initializationState", at(64));
    ++initializationState->expectedStreamCount;
}

int OutputFormatContext::addStream(const AVCodecParameters* parameters, int rotation) {
    rethrowFailure();
    // The decoder is the hint that muxers have always been given here. Kept.
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    AVStream* stream = readyForPackets() ? nullptr : avformat_new_stream(formatContext, codec);
    if (stream == nullptr)
        detail::failAssertion("Could not add stream to output", "false", at(75));
    stream->id = static_cast<int>(formatContext->nb_streams) - 1;
    if (firstVideoStreamIndex < 0 && parameters->codec_type == AVMEDIA_TYPE_VIDEO)
        firstVideoStreamIndex = stream->id;
    if (firstAudioStreamIndex < 0 && parameters->codec_type == AVMEDIA_TYPE_AUDIO)
        firstAudioStreamIndex = stream->id;
    // A failure is remembered: FFmpeg can neither take a stream away nor start over on the same
    // context, and the stream must not be added twice.
    try {
        describe(*stream, *parameters, rotation);
        if (static_cast<uint32_t>(stream->id) == initializationState->expectedStreamCount - 1)
            openAndWriteHeader();
    } catch (...) {
        headerFailure = std::current_exception();
        throw;
    }
    return stream->id;
}

void OutputFormatContext::openAndWriteHeader() {
    detail::checkResult(
        avio_open(&formatContext->pb, initializationState->path.c_str(), AVIO_FLAG_WRITE), at(51));
    detail::checkResult(avformat_write_header(formatContext, nullptr), at(56));
    initializationState.reset();
}

void OutputFormatContext::rethrowFailure() const {
    if (headerFailure)
        std::rethrow_exception(headerFailure);
}

bool OutputFormatContext::hasFailed() const {
    const AVIOContext* file = formatContext->pb;
    return headerFailure != nullptr || finished || (file != nullptr && file->error < 0);
}

void OutputFormatContext::adopt(int streamIndex, const std::deque<OutputPacket>& packets) {
    for (const OutputPacket& packet : packets)
        adoptedPackets.push_back({streamIndex, packet});
}

// Destructors say this, and must not fail for want of the memory of a line.
void OutputFormatContext::letGo(size_t count) const noexcept {
    if (count == 0)
        return;
    try {
        detail::logFailure(std::to_string(count) + " packets could not be written to \"" + path +
                           "\"");
    } catch (const std::bad_alloc&) {
    }
}

void OutputFormatContext::writePacket(AVPacket& packet) {
    requireOpenFile();
    writeAdoptedPackets();
    writeOrHold(packet);
}

void OutputFormatContext::writePacket(const OutputPacket& packet, int streamIndex) {
    requireOpenFile();
    writeAdoptedPackets();
    writeRescaled(packet, streamIndex);
}

void OutputFormatContext::requireOpenFile() const {
    if (!readyForPackets() || finished)
        detail::failAssertion("\"" + path +
                                  "\" takes no packets before its header and after its end",
                              "readyForPackets() && !finished", at(126));
}

// One that FFmpeg refuses must not stand in the way of the other streams for good.
void OutputFormatContext::writeAdoptedPackets() {
    while (!adoptedPackets.empty()) {
        const AdoptedPacket adopted = std::move(adoptedPackets.front());
        adoptedPackets.pop_front();
        writeRescaled(adopted.packet, adopted.streamIndex);
    }
}

void OutputFormatContext::writeRescaled(const OutputPacket& packet, int streamIndex) {
    const detail::PacketHandle local(av_packet_alloc());
    detail::checkResult(local ? av_packet_ref(local.get(), &packet.getPacket()) : AVERROR(ENOMEM),
                        {"OutputStream", 70});
    av_packet_rescale_ts(local.get(), detail::toAvRational(packet.getUnitTime()),
                         getStream(streamIndex)->time_base);
    local->stream_index = streamIndex;
    writeOrHold(*local);
}

void OutputFormatContext::writeOrHold(AVPacket& packet) {
    if (timeOffset != AV_NOPTS_VALUE) {
        writePacketWithOffset(packet);
        return;
    }
    pendingPackets.push_back(blankPacket());
    const int referenced = av_packet_ref(&pendingPackets.back(), &packet);
    if (referenced < 0)
        pendingPackets.pop_back();
    detail::checkResult(referenced, at(135));
    if (packet.stream_index != getReferenceStreamIndex())
        return;
    // A reference packet without a time leaves the origin unknown for those that follow.
    timeOffset = detail::wrappingDifference(0, packet.pts);
    writeHeldPackets();
}

void OutputFormatContext::writeHeldPackets() {
    for (AVPacket& held : pendingPackets) {
        writePacketWithOffset(held);
        av_packet_unref(&held);
    }
    pendingPackets.clear();
}

void OutputFormatContext::writePacketWithOffset(AVPacket& packet) {
    const Rational reference(getStream(getReferenceStreamIndex())->time_base);
    const Rational own(getStream(packet.stream_index)->time_base);
    const int64_t shift = detail::wholeTicks(Rational(timeOffset, 1) * reference, own);
    packet.pts = detail::wrappingSum(packet.pts, shift);
    packet.dts = detail::wrappingSum(packet.dts, shift);
    detail::checkResult(av_interleaved_write_frame(formatContext, &packet), at(188));
}

int OutputFormatContext::getReferenceStreamIndex() const {
    if (firstVideoStreamIndex >= 0)
        return firstVideoStreamIndex;
    return firstAudioStreamIndex >= 0 ? firstAudioStreamIndex : 0;
}

void OutputFormatContext::finish() {
    if (!readyForPackets() || finished)
        return;
    finished = true;
    detail::checkResult(av_write_trailer(formatContext), at(204), path);
    detail::checkResult(avio_closep(&formatContext->pb), at(205), path);
}

bool OutputFormatContext::formatHasGlobalHeaders() const {
    return (formatContext->oformat->flags & AVFMT_GLOBALHEADER) != 0;
}

} // namespace tio::ffmpeg
