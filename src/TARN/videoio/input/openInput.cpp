#include "input/openInput.h"

#include "base/checks.h"

#include <TARN/videoio/Exception.h>

#include <new>
#include <string_view>

namespace tio::ffmpeg::detail {

namespace {

void setOptions(const std::string& url, const OpenOptions& options, Options& dictionary) {
    setTransportOptions(url, dictionary);
    if (options.probeSize != 0)
        dictionary.set("probesize", std::to_string(options.probeSize).c_str());
    for (const auto& [name, value] : options.demuxerOptions)
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

// What FFmpeg says of an interrupted call ("Immediate exit requested") would not say why.
void checkOpening(int result, int number, const std::string& url, const InputWatch& watch) {
    using Verdict = InputWatch::Verdict;
    const auto limit = std::to_string(watch.options.openTimeout.count());
    if (watch.verdict() == Verdict::TimedOut)
        throw Exception("Opening took longer than " + limit + " ms: " + url);
    if (watch.verdict() == Verdict::Cancelled)
        throw Exception("Opening was cancelled: " + url);
    checkResult(result, {"InputFormatContext", number}, url);
}

void requireAllTaken(const Options& left, const OpenOptions& options, const std::string& url) {
    for (const auto& option : options.demuxerOptions)
        if (left.find(option.first.c_str()) != nullptr)
            failPlainly("There is no option \"" + option.first + "\" for " + url);
}

// Where a transport stream has no packet, FFmpeg goes back by one and searches this many bytes.
// With fewer than a packet it may end where it began, and it tries again for ever, where no
// interruption reaches it.
void requireSearchOfAPacket(AVFormatContext& input, const std::string& url) {
    constexpr int64_t longestPacket = 204; // 188, and 16 of error correction
    constexpr const char* option = "resync_size";
    int64_t size = longestPacket;
    if (av_opt_get_int(&input, option, AV_OPT_SEARCH_CHILDREN, &size) >= 0 && size < longestPacket)
        failPlainly(std::string("The option \"") + option + "\" must be at least " +
                    std::to_string(longestPacket) + " for " + url);
}

} // namespace

void setTransportOptions(const std::string& url, Options& options) {
    constexpr std::string_view scheme = "rtsp://";
    if (url.compare(0, scheme.size(), scheme) != 0)
        return;
    // Lost datagrams mean broken pictures: TCP where the server has it, and for the rest a receive
    // buffer of 4 MiB, room for the burst of a large key frame.
    options.set("buffer_size", "4194304");
    options.set("rtsp_flags", "prefer_tcp");
}

InputContextHandle openInput(const std::string& url, InputWatch& watch) {
    Options dictionary;
    setOptions(url, watch.options, dictionary);
    Demuxer demuxer = findDemuxer(watch.options.formatName);
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr)
        throw std::bad_alloc();
    context->interrupt_callback = {InputWatch::shouldGiveUp, &watch};
    watch.allow(watch.options.openTimeout);
    // FFmpeg frees the context when this fails.
    const int opened = avformat_open_input(&context, url.c_str(), demuxer, dictionary.address());
    InputContextHandle input(context);
    checkOpening(opened, 60, url, watch);
    requireAllTaken(dictionary, watch.options, url);
    requireSearchOfAPacket(*input, url);
    checkOpening(avformat_find_stream_info(input.get(), nullptr), 65, url, watch);
    checkOpening(compat::restoreRotateTags(*input), 70, url, watch);
    return input;
}

} // namespace tio::ffmpeg::detail
