#include "base/checks.h"
#include "base/handles.h"
#include "base/ticks.h"
#include "ffmpeg_compat.h"
#include "media/avRational.h"

#include <TARN/core/Rational.h>
#include <TARN/videoio/OutputFormatContext.h>

#include <algorithm>
#include <map>
#include <new>
#include <sstream>
#include <string>
#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Places at("OutputFormatContext");

void describe(AVStream& stream, const AVCodecParameters& parameters, int rotation) {
    detail::checkResult(avcodec_parameters_copy(stream.codecpar, &parameters), at(90));
    stream.codecpar->codec_tag = 0; // the input's tag may mean something else in MP4
    compat::dropDisplayMatrix(*stream.codecpar);
    if (rotation != 0)
        detail::checkResult(compat::setRotation(stream, rotation & 3, rotation >= 4), at(91));
}

} // namespace

/// What is needed until the header is written.
struct OutputFormatContext::InitializationState {
    uint32_t expectedStreamCount = 0;
    std::string path;
    std::map<uint32_t, Rational> silentStreams; // time bases, by the number of the announcement
};

/// A packet that waits, with a reference of its own to the data.
struct OutputFormatContext::PendingPacket {
    AVPacket packet;
    Rational timeBase;
};

/// What came of a write, and at which check.
struct OutputFormatContext::Answer {
    int result = 0;
    detail::Location check = at(188);
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
// Packets that still wait for the time origin are not written, having no time, and not released:
// docs/behaviour.md. Those of streams that went before the header are released.
OutputFormatContext::~OutputFormatContext() {
    if (readyForPackets() && !finished)
        av_write_trailer(formatContext);
    if (!readyForPackets()) {
        letGo(pendingPackets.size());
        for (PendingPacket& pending : pendingPackets)
            av_packet_unref(&pending.packet);
    }
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

uint32_t OutputFormatContext::announce(Rational timeBase) {
    addExpectedStream();
    const uint32_t number = initializationState->expectedStreamCount;
    initializationState->silentStreams.emplace(number, timeBase);
    return number;
}

void OutputFormatContext::forgetAnnouncement(uint32_t number) noexcept {
    if (initializationState)
        initializationState->silentStreams.erase(number);
}

int OutputFormatContext::addStream(const AVCodecParameters* parameters, int rotation) {
    rethrowFailure();
    if (parameters == nullptr)
        detail::failAssertion("A stream of \"" + path + "\" needs codec parameters", "parameters",
                              at(70));
    // Muxers take the decoder as well as the encoder for the hint.
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
    // The reference stream may have gone already, its packets adopted.
    const auto first =
        std::find_if(pendingPackets.begin(), pendingPackets.end(), [this](const auto& pending) {
            return pending.packet.stream_index == getReferenceStreamIndex();
        });
    if (first == pendingPackets.end())
        return;
    rescale(*first);
    timeOffset = detail::wrappingDifference(0, first->packet.pts);
}

void OutputFormatContext::rethrowFailure() const {
    if (headerFailure)
        std::rethrow_exception(headerFailure);
}

// Nothing more can get into the file then. Whoever wrote has had the exception.
bool OutputFormatContext::hasFailed() const noexcept {
    const AVIOContext* file = formatContext->pb;
    return headerFailure != nullptr || finished || (file != nullptr && file->error < 0);
}

// The packets of a stream that goes before the header is written: they wait with those that wait
// for the time origin.
void OutputFormatContext::adopt(int streamIndex, const std::deque<OutputPacket>& packets) {
    size_t lost = 0;
    for (const OutputPacket& packet : packets) {
        if (hold(packet.getPacket(), packet.getUnitTime()).result < 0)
            ++lost;
        else
            pendingPackets.back().packet.stream_index = streamIndex;
    }
    letGo(lost);
}

// Called by destructors, which must not fail when there is no memory for a line.
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
    const Answer answer = writeOrHold(packet);
    detail::checkResult(answer.result, answer.check);
}

void OutputFormatContext::writePacket(const OutputPacket& packet, int streamIndex) {
    requireOpenFile();
    const Answer answer = writeCopy(packet, streamIndex);
    detail::checkResult(answer.result, answer.check);
}

// For packets whose failure the caller knows by an exception: no second one, and no line.
bool OutputFormatContext::tryToWrite(const OutputPacket& packet, int streamIndex) noexcept {
    try {
        return readyForPackets() && !finished && writeCopy(packet, streamIndex).result >= 0;
    } catch (...) {
        return false;
    }
}

void OutputFormatContext::requireOpenFile() const {
    if (!readyForPackets() || finished)
        detail::failAssertion("\"" + path +
                                  "\" takes no packets before its header and after its end",
                              "readyForPackets() && !finished", at(126));
}

OutputFormatContext::Answer OutputFormatContext::writeCopy(const OutputPacket& packet,
                                                           int streamIndex) {
    const detail::PacketHandle local(av_packet_alloc());
    const int referenced =
        local ? av_packet_ref(local.get(), &packet.getPacket()) : AVERROR(ENOMEM);
    if (referenced < 0)
        return {referenced, {"OutputStream", 70}};
    av_packet_rescale_ts(local.get(), detail::toAvRational(packet.getUnitTime()),
                         getStream(streamIndex)->time_base);
    local->stream_index = streamIndex;
    return writeOrHold(*local);
}

OutputFormatContext::Answer OutputFormatContext::writeOrHold(AVPacket& packet) {
    if (timeOffset != AV_NOPTS_VALUE) {
        const Answer answer = writePendingPackets(); // of streams that went, or after a failure
        return answer.result < 0 ? answer : writePacketWithOffset(packet);
    }
    Answer answer = hold(packet, getStream(packet.stream_index)->time_base);
    if (answer.result < 0 || packet.stream_index != getReferenceStreamIndex())
        return answer;
    // A reference packet without a time leaves the origin unknown for those that follow.
    timeOffset = detail::wrappingDifference(0, packet.pts);
    answer = writePendingPackets();
    if (answer.result < 0 && !pendingPackets.empty()) { // the caller, who sees it, keeps the packet
        av_packet_unref(&pendingPackets.back().packet);
        pendingPackets.pop_back();
    }
    return answer;
}

OutputFormatContext::Answer OutputFormatContext::hold(const AVPacket& packet, Rational timeBase) {
    pendingPackets.push_back({{}, timeBase});
    AVPacket& held = pendingPackets.back().packet;
    compat::makeBlank(held);
    const int referenced = av_packet_ref(&held, &packet);
    if (referenced < 0)
        pendingPackets.pop_back();
    return {referenced, at(135)};
}

// A packet that FFmpeg refuses must not stand in the way of the others for ever.
OutputFormatContext::Answer OutputFormatContext::writePendingPackets() {
    while (!pendingPackets.empty()) {
        PendingPacket pending = pendingPackets.front();
        pendingPackets.pop_front();
        rescale(pending);
        const Answer answer = writePacketWithOffset(pending.packet);
        av_packet_unref(&pending.packet);
        if (answer.result < 0)
            return answer;
    }
    return {};
}

// To the ticks of the stream, which are not settled before the header is written.
void OutputFormatContext::rescale(PendingPacket& pending) {
    const AVRational ticks = getStream(pending.packet.stream_index)->time_base;
    av_packet_rescale_ts(&pending.packet, detail::toAvRational(pending.timeBase), ticks);
    pending.timeBase = ticks;
}

OutputFormatContext::Answer OutputFormatContext::writePacketWithOffset(AVPacket& packet) {
    const Rational reference(getStream(getReferenceStreamIndex())->time_base);
    const Rational own(getStream(packet.stream_index)->time_base);
    // From an unknown time nothing can be counted: FFmpeg refuses the packets, which would all be
    // at 0.
    const bool known = timeOffset != AV_NOPTS_VALUE;
    const int64_t shift = known ? detail::wholeTicks(Rational(timeOffset, 1) * reference, own) : 0;
    packet.pts = detail::wrappingSum(packet.pts, shift);
    packet.dts = detail::wrappingSum(packet.dts, shift);
    return {av_interleaved_write_frame(formatContext, &packet), at(188)};
}

int OutputFormatContext::getReferenceStreamIndex() const noexcept {
    if (firstVideoStreamIndex >= 0)
        return firstVideoStreamIndex;
    return firstAudioStreamIndex >= 0 ? firstAudioStreamIndex : 0;
}

void OutputFormatContext::finish() {
    if (finished)
        return;
    requireAllStreams();
    if (timeOffset != AV_NOPTS_VALUE) {
        const Answer answer = writePendingPackets();
        detail::checkResult(answer.result, answer.check);
    }
    if (!pendingPackets.empty())
        detail::failAssertion(std::to_string(pendingPackets.size()) + " packets of \"" + path +
                                  "\" wait for the first packet of stream " +
                                  std::to_string(getReferenceStreamIndex()),
                              "pendingPackets.empty()", at(203));
    finished = true;
    detail::checkResult(av_write_trailer(formatContext), at(204), path);
    detail::checkResult(avio_closep(&formatContext->pb), at(205), path);
}

void OutputFormatContext::requireAllStreams() const {
    if (readyForPackets())
        return;
    rethrowFailure();
    const InitializationState& state = *initializationState;
    std::ostringstream message;
    message << "There is no file \"" << path << "\": ";
    if (state.expectedStreamCount == 0)
        message << "no stream was made for it";
    else if (state.silentStreams.empty())
        message << "of " << state.expectedStreamCount << " streams that were announced, only "
                << formatContext->nb_streams << " were added";
    for (const auto& [number, timeBase] : state.silentStreams)
        message << (number == state.silentStreams.begin()->first ? "stream " : ", stream ")
                << number << " of " << state.expectedStreamCount << " (time base " << timeBase
                << ")";
    if (!state.silentStreams.empty())
        message << " never got a packet";
    if (!pendingPackets.empty())
        message << "; " << pendingPackets.size() << " packets of others are lost";
    detail::failAssertion(message.str(), "readyForPackets()", at(202));
}

bool OutputFormatContext::formatHasGlobalHeaders() const noexcept {
    return (formatContext->oformat->flags & AVFMT_GLOBALHEADER) != 0;
}

} // namespace tio::ffmpeg
