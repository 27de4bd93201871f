#include "media/Input.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <utility>

namespace tio::tool {

namespace fs = std::filesystem;

namespace {

// FFmpeg's protocols that hand out what comes at the moment.
constexpr std::array<std::string_view, 11> liveProtocols = {
    "rtsp", "rtsps", "rtmp", "rtmps", "rtp", "srtp", "udp", "tcp", "srt", "pipe", "fd"};

/// Whether a file has the signature of a frame index; a bare seeking index has none.
bool isFrameIndex(const std::string& path) {
    constexpr std::string_view signature = "TARNidx\n";
    std::array<char, signature.size()> start{};
    std::ifstream file(path, std::ios::binary);
    file.read(start.data(), start.size());
    return file && std::string_view(start.data(), start.size()) == signature;
}

} // namespace

Clip openInput(const std::string& url) {
    return reading(url, [&] { return std::make_shared<ffmpeg::InputFormatContext>(url); });
}

bool canBeReadAgain(const std::string& url) {
    std::error_code unreadable; // shows when the clip is opened
    const fs::file_status file = fs::status(url, unreadable);
    if (fs::exists(file))
        return fs::is_regular_file(file) || fs::is_block_file(file);
    const auto protocol = std::string_view(url).substr(0, url.find(':'));
    return std::find(liveProtocols.begin(), liveProtocols.end(), protocol) == liveProtocols.end();
}

void requireReadAgain(const std::string& url) {
    if (!canBeReadAgain(url))
        throw Failure(ExitCode::Input, url,
                      "this needs a clip that can be read more than once, such as a file");
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
