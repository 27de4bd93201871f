#include "base/Options.h"
#include "base/checks.h"
#include "base/vocabulary.h"
#include "ffmpeg_compat.h"
#include "input/InputAccess.h"
#include "input/InputWatch.h"
#include "input/openInput.h"

#include <TARN/videoio/InputFormatContext.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Location at(int number) {
    return {"InputFormatContext", number};
}

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

// Exactly these two texts turn the size: a tag such as "-90" does not, although the pictures of
// such a stream come out turned. Kept: the size query answers for the tag that cameras write.
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

InputFormatContext::InputFormatContext(std::string url) : earliestTimestamp(noTimestampYet) {
    detail::Options options;
    detail::setTransportOptions(url, options);
    const int opened = avformat_open_input(&formatContext, url.c_str(), nullptr, options.address());
    detail::checkResult(opened, at(60), url);
    // Kept: when this fails the context stays open, because the destructor of an object whose
    // constructor threw does not run. FFmpeg fails here only when memory runs out or the input's
    // data breaks off inside a header that it needs.
    detail::checkResult(avformat_find_stream_info(formatContext, nullptr), at(65), url);
    const int restored = compat::restoreRotateTags(*formatContext);
    if (restored < 0)
        avformat_close_input(&formatContext);
    detail::checkResult(restored, at(70), url);
}

InputFormatContext::InputFormatContext(std::string url, OpenOptions options)
    : earliestTimestamp(noTimestampYet),
      watch(std::make_unique<detail::InputWatch>(std::move(options))) {
    formatContext = detail::openInput(url, *watch).release();
}

InputFormatContext::~InputFormatContext() {
    if (watch)
        watch->allow(watch->options.readTimeout); // a server may be slow to hear the farewell
    avformat_close_input(&formatContext);
}

int InputFormatContext::getStreamCount() const {
    return static_cast<int>(formatContext->nb_streams);
}

int InputFormatContext::findBestVideoStreamIndex() const {
    return requireBestStream(formatContext, AVMEDIA_TYPE_VIDEO);
}

int InputFormatContext::findBestAudioStreamIndex() const {
    return requireBestStream(formatContext, AVMEDIA_TYPE_AUDIO);
}

int InputFormatContext::hasVideoStream() const {
    return bestStream(formatContext, AVMEDIA_TYPE_VIDEO) >= 0 ? 1 : 0;
}

int InputFormatContext::hasAudioStream() const {
    return bestStream(formatContext, AVMEDIA_TYPE_AUDIO) >= 0 ? 1 : 0;
}

Container InputFormatContext::getContainerFormat() {
    return detail::containerFromName(formatContext->iformat->name);
}

std::string InputFormatContext::getContainerName() const {
    return formatContext->iformat->name;
}

Codec InputFormatContext::getCodecOfStream(int index) {
    return detail::codecFromId(getStream(index)->codecpar->codec_id);
}

std::string InputFormatContext::getCodecNameOfStream(int index) const {
    return avcodec_get_name(getStream(index)->codecpar->codec_id);
}

StreamType InputFormatContext::getTypeOfStream(int index) const {
    return detail::streamTypeFrom(getStream(index)->codecpar->codec_type);
}

std::vector<unsigned char> InputFormatContext::getExtradataOfStream(int index) const {
    const AVCodecParameters& parameters = *getStream(index)->codecpar;
    return {parameters.extradata, parameters.extradata + parameters.extradata_size};
}

Rational InputFormatContext::getDurationOfStream(int index) {
    const AVStream& stream = *getStream(index);
    return Rational(stream.duration, 1) * Rational(stream.time_base);
}

bool InputFormatContext::hasDurationOfStream(int index) const {
    return getStream(index)->duration != AV_NOPTS_VALUE;
}

bool InputFormatContext::getResolutionOfStream(int index, int& width, int& height) const {
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
    return readNext(packet, [streamIndex](int index) { return index == streamIndex; });
}

bool detail::InputAccess::readNext(InputFormatContext& input, AVPacket* packet,
                                   const std::vector<int>& streams) {
    return input.readNext(packet, [&streams](int index) {
        return std::find(streams.begin(), streams.end(), index) != streams.end();
    });
}

template <typename Wanted>
bool InputFormatContext::readNext(AVPacket* packet, Wanted wanted) {
    startClock();
    int result = 0;
    while ((result = readPacket(packet)) >= 0) {
        noteTimestamp(*packet);
        if (wanted(packet->stream_index) && packet->size != 0) {
            endReason = {};
            return true;
        }
        av_packet_unref(packet);
    }
    noteEnd(result);
    return false;
}

void InputFormatContext::startClock() {
    if (!watch)
        return;
    AVIOContext* file = formatContext->pb;
    if (watch->verdict() == detail::InputWatch::Verdict::TimedOut && file != nullptr) {
        file->eof_reached = 0; // FFmpeg would not ask the source again
        file->error = 0;
    }
    watch->allow(watch->options.readTimeout);
}

// FFmpeg asks the watch only while it waits; packets that are there already are not held up.
int InputFormatContext::readPacket(AVPacket* packet) {
    if (watch && detail::InputWatch::shouldGiveUp(watch.get()) != 0)
        return AVERROR_EXIT;
    return av_read_frame(formatContext, packet);
}

// Demuxers tend to take any failure of a read for the end of the file; the file itself knows.
void InputFormatContext::noteEnd(int result) {
    using Verdict = detail::InputWatch::Verdict;
    using Kind = EndReason::Kind;
    const Verdict verdict = watch ? watch->verdict() : Verdict::GoOn;
    const AVIOContext* file = formatContext->pb;
    if (result == AVERROR_EOF && file != nullptr && file->error < 0)
        result = file->error;
    if (verdict == Verdict::TimedOut)
        endReason = {Kind::Timeout, 0, {}};
    else if (verdict == Verdict::Cancelled)
        endReason = {Kind::Cancelled, 0, {}};
    else if (result == AVERROR_EOF)
        endReason = {Kind::EndOfStream, 0, {}};
    else
        endReason = {Kind::Error, result, detail::ffmpegText(result)};
}

EndReason InputFormatContext::getEndReason() const {
    return endReason;
}

// An unknown pts counts like any other here, as the smallest time there can be.
void InputFormatContext::noteTimestamp(const AVPacket& packet) {
    const Rational time =
        Rational(packet.pts, 1) * Rational(getStream(packet.stream_index)->time_base);
    const Rational difference = earliestTimestamp - time;
    const bool numeratorPositive = difference.numerator > 0;
    const bool denominatorPositive = difference.denominator > 0;
    if (difference.numerator != 0 && numeratorPositive == denominatorPositive)
        earliestTimestamp = time;
}

void InputFormatContext::seekStreamToOrBefore(int64_t timestamp, int streamIndex) {
    // The demuxer's own seek-by-pts bit goes along in the seek flags; releases that give the bit no
    // meaning there ignore it.
    startClock();
    const int flags = AVSEEK_FLAG_BACKWARD | (formatContext->iformat->flags & AVFMT_SEEK_TO_PTS);
    detail::checkResult(av_seek_frame(formatContext, streamIndex, timestamp, flags), at(140),
                        "Seeking");
}

bool InputFormatContext::isPtsSeekable() const {
    return (formatContext->iformat->flags & AVFMT_SEEK_TO_PTS) != 0;
}

std::string InputFormatContext::getUrl() const {
    return formatContext->url != nullptr ? formatContext->url : "";
}

} // namespace tio::ffmpeg
