#include "base/checks.h"
#include "base/vocabulary.h"
#include "ffmpeg_compat.h"
#include "input/OpenInput.h"

#include <TARN/videoio/InputFormatContext.h>

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

namespace tio::ffmpeg {

namespace {

using detail::OpenInput;

constexpr detail::Places at("InputFormatContext");

// Later than any real time, so that the first packet read becomes the earliest.
constexpr int64_t noTimestampYet = 2147483647;

int bestStream(AVFormatContext* context, AVMediaType type) {
    return av_find_best_stream(context, type, -1, -1, nullptr, 0);
}

int requireBestStream(AVFormatContext* context, AVMediaType type) {
    const int index = bestStream(context, type);
    detail::checkResult(index, at(92), "Could not find stream of requested type");
    return index;
}

__extension__ using Wide = __int128;

// An unknown pts is the most negative number of ticks, and so the smallest time there is.
Rational secondsOf(int64_t ticks, AVRational timeBase) {
    int64_t product = 0;
    if (__builtin_mul_overflow(ticks, int64_t{timeBase.num}, &product))
        product =
            ticks < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    return Rational(product, timeBase.den);
}

// Both denominators are positive, or one is that of a stream without a time base.
bool isEarlier(const Rational& time, const Rational& other) {
    return Wide{time.numerator} * other.denominator < Wide{other.numerator} * time.denominator;
}

// Exactly these two texts, which cameras write, swap the sides. A tag such as "-90" does not,
// although the pictures of such a stream come out turned: docs/behaviour.md says what to ask then.
bool rotateTagSwapsSides(const AVStream& stream) {
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(stream.metadata, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        if (std::string_view(entry->key) == "rotate") {
            const std::string_view value = entry->value;
            return value == "90" || value == "270";
        }
    }
    return false;
}

} // namespace

InputFormatContext::InputFormatContext(std::string url)
    : earliestTimestamp(noTimestampYet),
      opened(std::make_unique<OpenInput>(Source(std::move(url)), OpenInput::clip,
                                         OpenInput::Watching::No)) {
    opened->open();
    formatContext = opened->context();
    try {
        opened->findStreams();
    } catch (...) {
        // The context stays open: docs/behaviour.md. FFmpeg fails here only when memory runs out or
        // the input's data breaks off inside a header that it needs.
        opened->letGo();
        throw;
    }
    opened->restoreTags();
}

InputFormatContext::InputFormatContext(std::string url, OpenOptions options)
    : InputFormatContext(Source(std::move(url), std::move(options))) {}

InputFormatContext::InputFormatContext(const Source& source)
    : earliestTimestamp(noTimestampYet),
      opened(std::make_unique<OpenInput>(source, OpenInput::clip, OpenInput::Watching::Yes)) {
    opened->open();
    opened->findStreams();
    opened->restoreTags();
    formatContext = opened->context();
}

InputFormatContext::~InputFormatContext() = default;

int InputFormatContext::getStreamCount() const noexcept {
    return static_cast<int>(formatContext->nb_streams);
}

int InputFormatContext::findBestVideoStreamIndex() const {
    return requireBestStream(formatContext, AVMEDIA_TYPE_VIDEO);
}

int InputFormatContext::findBestAudioStreamIndex() const {
    return requireBestStream(formatContext, AVMEDIA_TYPE_AUDIO);
}

int InputFormatContext::hasVideoStream() const noexcept {
    return bestStream(formatContext, AVMEDIA_TYPE_VIDEO) >= 0 ? 1 : 0;
}

int InputFormatContext::hasAudioStream() const noexcept {
    return bestStream(formatContext, AVMEDIA_TYPE_AUDIO) >= 0 ? 1 : 0;
}

Container InputFormatContext::getContainerFormat() const noexcept {
    return detail::containerFromName(formatContext->iformat->name);
}

std::string InputFormatContext::getContainerName() const {
    return formatContext->iformat->name;
}

Codec InputFormatContext::getCodecOfStream(int index) const noexcept {
    return detail::codecFromId(getStream(index)->codecpar->codec_id);
}

std::string InputFormatContext::getCodecNameOfStream(int index) const {
    return avcodec_get_name(getStream(index)->codecpar->codec_id);
}

StreamType InputFormatContext::getTypeOfStream(int index) const noexcept {
    return detail::streamTypeFrom(getStream(index)->codecpar->codec_type);
}

std::vector<unsigned char> InputFormatContext::getExtradataOfStream(int index) const {
    const AVCodecParameters& parameters = *getStream(index)->codecpar;
    return {parameters.extradata, parameters.extradata + parameters.extradata_size};
}

Rational InputFormatContext::getDurationOfStream(int index) const noexcept {
    const AVStream& stream = *getStream(index);
    return Rational(stream.duration, 1) * Rational(stream.time_base);
}

bool InputFormatContext::hasDurationOfStream(int index) const noexcept {
    return getStream(index)->duration != AV_NOPTS_VALUE;
}

bool InputFormatContext::getResolutionOfStream(int index, int& width, int& height) const noexcept {
    if (index < 0 || index >= getStreamCount() || !compat::hasBeenProbed(*getStream(index)))
        return false;
    const AVStream& stream = *getStream(index);
    width = stream.codecpar->width;
    height = stream.codecpar->height;
    if (rotateTagSwapsSides(stream))
        std::swap(width, height);
    return true;
}

bool InputFormatContext::getNextPacketForStream(AVPacket* packet, int streamIndex) {
    return readNext(packet, &streamIndex, &streamIndex + 1);
}

// Takes the streams from `firstStream` up to the one before `lastStream`.
bool InputFormatContext::readNext(AVPacket* packet, const int* firstStream, const int* lastStream) {
    opened->startClock();
    int result = 0;
    while ((result = opened->readPacket(packet)) >= 0) {
        noteTimestamp(*packet);
        const bool wanted = std::find(firstStream, lastStream, packet->stream_index) != lastStream;
        if (wanted && packet->size != 0) {
            endReason = {};
            return true;
        }
        av_packet_unref(packet);
    }
    endReason = opened->reasonFor(result);
    opened->rethrowFailure();
    return false;
}

EndReason InputFormatContext::getEndReason() const {
    return endReason;
}

void InputFormatContext::noteTimestamp(const AVPacket& packet) {
    const AVRational base = getStream(packet.stream_index)->time_base;
    const Rational time = secondsOf(packet.pts, base);
    if (isEarlier(time, earliestTimestamp))
        earliestTimestamp = time;
}

void InputFormatContext::seekStreamToOrBefore(int64_t timestamp, int streamIndex) {
    // The demuxer's own seek-by-pts bit goes along in the seek flags; releases that give the bit no
    // meaning there ignore it.
    const int flags = AVSEEK_FLAG_BACKWARD | (formatContext->iformat->flags & AVFMT_SEEK_TO_PTS);
    const int sought = opened->seek(streamIndex, timestamp, flags);
    opened->rethrowFailure();
    detail::checkResult(sought, at(140), "Seeking");
}

bool InputFormatContext::isPtsSeekable() const noexcept {
    return (formatContext->iformat->flags & AVFMT_SEEK_TO_PTS) != 0;
}

std::string InputFormatContext::getUrl() const {
    return opened->source().name();
}

} // namespace tio::ffmpeg
