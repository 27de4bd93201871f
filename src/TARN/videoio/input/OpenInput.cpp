#include "input/OpenInput.h"

#include "base/Options.h"
#include "base/checks.h"

#include <TARN/videoio/Exception.h>

#include <new>
#include <string>
#include <string_view>

namespace tio::ffmpeg::detail {

namespace {

using Verdict = InputWatch::Verdict;

void setTransportOptions(const std::string& url, Options& options) {
    constexpr std::string_view scheme = "rtsp://";
    if (url.compare(0, scheme.size(), scheme) != 0)
        return;
    // Lost datagrams mean broken pictures: TCP where the server has it, and for the rest a receive
    // buffer of 4 MiB, room for the burst of a large key frame.
    options.set("buffer_size", "4194304");
    options.set("rtsp_flags", "prefer_tcp");
}

void setOptions(const Source& source, const OpenInput::Manner& manner, Options& dictionary) {
    if (source.kind() == Source::Kind::Url)
        setTransportOptions(source.name(), dictionary);
    else // what demuxers open by themselves does not come past refuseToOpen()
        dictionary.set("protocol_whitelist", "none");
    if (manner.option != nullptr)
        dictionary.set(manner.option, manner.value);
    if (source.options().probeSize != 0)
        dictionary.set("probesize", std::to_string(source.options().probeSize).c_str());
    for (const auto& [name, value] : source.options().demuxerOptions)
        dictionary.set(name.c_str(), value.c_str());
}

// A pointer to const from FFmpeg 5 on.
using Demuxer = decltype(av_find_input_format(""));

Demuxer findDemuxer(const std::string& name) {
    if (name.empty())
        return nullptr;
    Demuxer demuxer = av_find_input_format(name.c_str());
    if (demuxer == nullptr)
        failPlainly("There is no demuxer \"" + name + "\"");
    return demuxer;
}

// Names in memory are those of files and hosts of whoever made it, not of whoever reads it.
int refuseToOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
    return AVERROR(EPERM);
}

} // namespace

OpenInput::OpenInput(const Source& opened, const Manner& how, Watching watching)
    : origin(opened), manner(how) {
    if (watching == Watching::Yes || origin.kind() != Source::Kind::Url)
        watch = std::make_unique<InputWatch>(origin.options());
}

OpenInput::~OpenInput() {
    if (watch)
        watch->allow(watch->options.readTimeout); // a server may be slow to end the session
}

void OpenInput::open() {
    Options dictionary;
    setOptions(origin, manner, dictionary);
    Demuxer demuxer = findDemuxer(origin.options().formatName);
    if (watch)
        watch->allow(watch->options.openTimeout);
    makeContext();
    // FFmpeg frees the context when this fails. It is to go by the bytes of a stream alone: by a
    // name it might take them for a list of files.
    AVFormatContext* context = input.release();
    const char* url = channel ? "" : origin.name().c_str();
    const int opened = avformat_open_input(&context, url, demuxer, dictionary.address());
    input.reset(context);
    check(opened, manner.opening, true);
    requireAllTaken(dictionary);
    requireSearchOfAPacket();
}

void OpenInput::makeContext() {
    if (!watch)
        return;
    if (origin.kind() != Source::Kind::Url)
        channel = std::make_unique<ByteChannel>(origin, *watch);
    input.reset(avformat_alloc_context());
    if (!input)
        throw std::bad_alloc();
    input->interrupt_callback = {InputWatch::shouldGiveUp, watch.get()};
    if (channel) {
        input->pb = channel->io();
        input->io_open = refuseToOpen;
    }
}

void OpenInput::findStreams() {
    check(avformat_find_stream_info(input.get(), nullptr), manner.streams, manner.namesAlways);
}

void OpenInput::restoreTags() {
    check(compat::restoreRotateTags(*input), manner.tags, manner.namesAlways);
}

// What FFmpeg says of an interrupted call ("Immediate exit requested") would not say why, and a
// demuxer may pass over what a stream did wrong.
void OpenInput::check(int result, int number, bool named) const {
    rethrowFailure();
    const Verdict verdict = watch ? watch->verdict() : Verdict::GoOn;
    if (verdict == Verdict::TimedOut)
        throw Exception("Opening took longer than " +
                            std::to_string(watch->options.openTimeout.count()) +
                            " ms: " + origin.name(),
                        AVERROR(ETIMEDOUT));
    if (verdict == Verdict::Cancelled)
        throw Exception("Opening was cancelled: " + origin.name(), AVERROR_EXIT);
    if (named)
        checkResult(result, {manner.file, number}, origin.name());
    else
        checkResult(result, {manner.file, number});
}

void OpenInput::requireAllTaken(const Options& left) const {
    for (const auto& option : origin.options().demuxerOptions)
        if (left.find(option.first.c_str()) != nullptr)
            failPlainly("There is no option \"" + option.first + "\" for " + origin.name());
}

// Where a transport stream has no packet, FFmpeg goes back by one and searches this many bytes. If
// they are fewer than a packet, it may end where it began, and then it tries again for ever,
// without asking whether to stop.
void OpenInput::requireSearchOfAPacket() const {
    constexpr int64_t longestPacket = 204; // 188, and 16 of error correction
    constexpr const char* option = "resync_size";
    int64_t size = longestPacket;
    if (av_opt_get_int(input.get(), option, AV_OPT_SEARCH_CHILDREN, &size) >= 0 &&
        size < longestPacket)
        failPlainly(std::string("The option \"") + option + "\" must be at least " +
                    std::to_string(longestPacket) + " for " + origin.name());
}

void OpenInput::startClock() noexcept {
    if (!watch)
        return;
    AVIOContext* file = input->pb;
    if (watch->verdict() != Verdict::GoOn && file != nullptr) {
        file->eof_reached = 0; // FFmpeg would not ask the source again
        file->error = 0;
    }
    watch->allow(watch->options.readTimeout);
}

// FFmpeg asks the watch only while it waits; packets that are there already are not held up.
int OpenInput::readPacket(AVPacket* packet) {
    if (watch && InputWatch::shouldGiveUp(watch.get()) != 0)
        return AVERROR_EXIT;
    const int result = av_read_frame(input.get(), packet);
    if (result < 0 || !channel || !channel->hasFailed())
        return result;
    av_packet_unref(packet); // it may be the part that came before the failure
    return AVERROR_EXTERNAL;
}

int OpenInput::seek(int streamIndex, int64_t timestamp, int flags) {
    if (channel)
        channel->forgetFailure();
    startClock();
    const int result = av_seek_frame(input.get(), streamIndex, timestamp, flags);
    return result < 0 && watch && watch->verdict() == Verdict::TimedOut ? AVERROR(ETIMEDOUT)
                                                                        : result;
}

// Demuxers tend to take any failure of a read for the end of the file; the file itself knows.
EndReason OpenInput::reasonFor(int result) const {
    using Kind = EndReason::Kind;
    const Verdict verdict = watch ? watch->verdict() : Verdict::GoOn;
    const AVIOContext* file = input->pb;
    if (result == AVERROR_EOF && file != nullptr && file->error < 0)
        result = file->error;
    if (verdict == Verdict::TimedOut)
        return {Kind::Timeout, 0, {}};
    if (verdict == Verdict::Cancelled)
        return {Kind::Cancelled, 0, {}};
    if (result == AVERROR_EOF)
        return {Kind::EndOfStream, 0, {}};
    return {Kind::Error, result, ffmpegText(result)};
}

bool OpenInput::wasCutShort() const noexcept {
    const bool stopped = watch && watch->verdict() != Verdict::GoOn;
    const AVIOContext* file = input->pb;
    return stopped || (file != nullptr && file->error < 0 && file->error != AVERROR_EOF);
}

} // namespace tio::ffmpeg::detail
