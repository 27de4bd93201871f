#include "exact/write/ClipContainer.h"

#include "exact/write/refusal.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>

namespace tio::ffmpeg::detail {

namespace {

// FLAC for Matroska's sound and floats for WAV: what keeps samples as they are.
constexpr std::array<ClipContainer, 9> containers = {{
    {".mp4", "mp4", true, true, "h264", "aac"},
    {".m4v", "mp4", true, true, "h264", "aac"},
    {".mov", "mov", true, true, "h264", "aac"},
    {".mkv", "matroska", false, true, "h264", "aac"},
    {".webm", "webm", false, true, "vp9", "opus"},
    {".m4a", "ipod", true, false, "", "aac"},
    {".wav", "wav", false, false, "", "pcm"},
    {".flac", "flac", false, false, "", "flac"},
    {".mka", "matroska", false, false, "", "flac"},
}};

template <typename Wanted>
std::string names(const Wanted& wanted) {
    std::string list;
    for (const ClipContainer& container : containers) {
        if (wanted(container))
            list += (list.empty() ? "" : ", ") + std::string(container.extension);
    }
    return list;
}

} // namespace

// Some muxers tell more or less than they take when they are asked.
bool ClipContainer::holds(AVCodecID id) const {
    if (avcodec_get_type(id) != AVMEDIA_TYPE_AUDIO && !pictures)
        return false;
    const std::string name = muxer;
    if (name == "webm")
        return id == AV_CODEC_ID_VP8 || id == AV_CODEC_ID_VP9 || id == AV_CODEC_ID_AV1 ||
               id == AV_CODEC_ID_OPUS || id == AV_CODEC_ID_VORBIS || id == AV_CODEC_ID_WEBVTT;
    if (name == "wav") { // others have numbers there, which next to nobody reads
        const std::string kind = avcodec_get_name(id);
        if (kind.rfind("pcm_", 0) != 0 && kind.rfind("adpcm_", 0) != 0 && id != AV_CODEC_ID_MP3 &&
            id != AV_CODEC_ID_MP2)
            return false;
    }
    if (name == "mov" &&
        (id == AV_CODEC_ID_VP8 || id == AV_CODEC_ID_VP9 || id == AV_CODEC_ID_AV1 ||
         id == AV_CODEC_ID_FLAC || id == AV_CODEC_ID_OPUS || id == AV_CODEC_ID_TRUEHD))
        return false;
    if (name == "flac")
        return id == AV_CODEC_ID_FLAC;
    const AVOutputFormat* format = av_guess_format(muxer, nullptr, nullptr);
    return format != nullptr && avformat_query_codec(format, id, FF_COMPLIANCE_EXPERIMENTAL) == 1;
}

int ClipContainer::fixedScale() const {
    constexpr int milliseconds = 1000;
    return mp4 || !pictures ? 0 : milliseconds;
}

bool ClipContainer::isMatroska() const {
    const std::string name = muxer;
    return name == "matroska" || name == "webm";
}

const ClipContainer& containerOf(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    for (const ClipContainer& container : containers) {
        if (extension == container.extension)
            return container;
    }
    const auto any = [](const ClipContainer&) { return true; };
    refuse(path, "the name does not end as that of a clip does: " + names(any));
}

void requireHolds(const ClipContainer& container, AVCodecID codec, const std::string& what,
                  const std::string& path) {
    if (container.holds(codec))
        return;
    const std::string able = names([&](const ClipContainer& other) { return other.holds(codec); });
    refuse(path, std::string(container.extension) + " cannot hold " + what +
                     (able.empty() ? "" : "; " + able + " can"));
}

} // namespace tio::ffmpeg::detail
