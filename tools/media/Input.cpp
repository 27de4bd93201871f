#include "media/Input.h"

#include "media/PipeSpool.h"
#include "terminal/Clock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <string_view>
#include <system_error>
#include <utility>

namespace tio::tool {

namespace fs = std::filesystem;

namespace {

// FFmpeg's protocols that hand out what comes at the moment.
constexpr std::array<std::string_view, 11> liveProtocols = {
    "rtsp", "rtsps", "rtmp", "rtmps", "rtp", "srtp", "udp", "tcp", "srt", "pipe", "fd"};

// FFmpeg's codes, which are four letters with the sign turned: AVERROR_STREAM_NOT_FOUND and
// AVERROR_DECODER_NOT_FOUND of libavutil/error.h.
constexpr int codeOf(char a, char b, char c) {
    constexpr int first = 0xF8;
    return -(first | a << 8 | b << 16 | c << 24);
}
constexpr int streamNotFound = codeOf('S', 'T', 'R');
constexpr int noDecoder = codeOf('D', 'E', 'C');

// Durations are rounded, and the last picture may be told to last longer than the others.
const ffmpeg::Rational toleratedGap(1, 2); // seconds

} // namespace

ffmpeg::Source sourceOf(const std::string& url) {
    static std::map<std::string, ffmpeg::Source> spooled;
    std::error_code unreadable; // shows when the clip is opened
    if (!fs::is_fifo(url, unreadable))
        return url;
    if (const auto known = spooled.find(url); known != spooled.end())
        return known->second;
    return reading(url, [&] { return spooled.emplace(url, spoolPipe(url)).first->second; });
}

Clip openInput(const std::string& url) {
    const auto source = sourceOf(url);
    return reading(url, [&] { return std::make_shared<ffmpeg::InputFormatContext>(source); });
}

Clip openOnce(const std::string& url) {
    return reading(url, [&] { return std::make_shared<ffmpeg::InputFormatContext>(url); });
}

bool canBeReadAgain(const std::string& url) {
    std::error_code unreadable; // shows when the clip is opened
    const fs::file_status file = fs::status(url, unreadable);
    if (fs::exists(file))
        return fs::is_regular_file(file) || fs::is_block_file(file) || fs::is_fifo(file);
    const auto protocol = std::string_view(url).substr(0, url.find(':'));
    return std::find(liveProtocols.begin(), liveProtocols.end(), protocol) == liveProtocols.end();
}

void requireReadAgain(const std::string& url) {
    if (!canBeReadAgain(url))
        throw Failure(
            ExitCode::Input, url,
            "this needs a clip that can be read more than once, such as a file or a pipe");
}

void failToDecode(const std::string& url, ffmpeg::StreamType type, std::optional<int> stream,
                  const ffmpeg::Exception& error) {
    const bool pictures = type == ffmpeg::StreamType::Video;
    if (error.code() == streamNotFound && !stream) {
        const Clip clip = openInput(url); // it names what is wrong where that fails
        const bool there = pictures ? clip->hasVideoStream() != 0 : clip->hasAudioStream() != 0;
        if (!there)
            throw Failure(ExitCode::Input, url,
                          pictures ? "there are no pictures in this clip"
                                   : "there is no sound in this clip");
    }
    if (error.code() != noDecoder && error.code() != -EINVAL)
        throw Failure(ExitCode::Input, url, reasonOf(error, url));
    const Clip clip = openInput(url);
    const int best = pictures ? clip->findBestVideoStreamIndex() : clip->findBestAudioStreamIndex();
    const std::string codec = clip->getCodecNameOfStream(stream.value_or(best));
    throw Failure(ExitCode::Input, url,
                  std::string(pictures ? "the pictures" : "the sound") +
                      " cannot be decoded: FFmpeg " +
                      (codec == "none" ? "does not know their codec"
                                       : "does not decode this stream of " + codec));
}

void warnOfMissingEnd(const Clip& clip, int stream, const ffmpeg::Rational& length) {
    if (!clip->hasDurationOfStream(stream))
        return;
    const ffmpeg::Rational stated = clip->getDurationOfStream(stream);
    if (length + toleratedGap < stated)
        printError(
            clip->getUrl() + ": only " +
            clockText(length.toDouble(), ClockPrecision::Milliseconds) + " can be read of the " +
            clockText(stated.toDouble(), ClockPrecision::Milliseconds) + " that the clip states");
}

bool isFrameIndex(const std::string& path) {
    constexpr std::string_view signature = "TARNidx\n";
    std::array<char, signature.size()> start{};
    std::ifstream file(path, std::ios::binary);
    file.read(start.data(), start.size());
    return file && std::string_view(start.data(), start.size()) == signature;
}

bool isRefusedSeek(const std::exception& error) {
    const auto* failure = dynamic_cast<const ffmpeg::Exception*>(&error);
    return failure != nullptr && failure->code() == -EPERM;
}

std::optional<ffmpeg::FrameIndex> storedFrameIndex(const InputOptions& input, const Clip& clip) {
    using Match = ffmpeg::FrameIndex::Match;
    if (!input.index)
        return std::nullopt;
    requireReadAgain(input.url);
    auto loaded =
        reading(*input.index, [&] { return ffmpeg::FrameIndex::load(*input.index, clip); });
    if (loaded.match == Match::Stale)
        throw Failure(ExitCode::Input, *input.index, input.url + " has changed since it was made");
    if (loaded.match == Match::Foreign && isFrameIndex(*input.index))
        throw Failure(ExitCode::Input, *input.index,
                      "this is the index of another clip than " + input.url);
    if (loaded.match == Match::Corrupt)
        throw Failure(ExitCode::Input, *input.index, "the index is damaged");
    return std::move(loaded.index);
}

} // namespace tio::tool
