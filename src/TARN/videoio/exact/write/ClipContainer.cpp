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

std::string names(bool (*wanted)(const ClipContainer&, const AVCodec*), const AVCodec* codec) {
    std::string list;
    for (const ClipContainer& container : containers) {
        if (wanted(container, codec))
            list += (list.empty() ? "" : ", ") + std::string(container.extension);
    }
    return list;
}

// Two muxers tell more or less than they take when they are asked.
bool holds(const ClipContainer& container, const AVCodec* codec) {
    if (codec->type == AVMEDIA_TYPE_VIDEO && !container.pictures)
        return false;
    const std::string muxer = container.muxer;
    if (muxer == "webm")
        return codec->id == AV_CODEC_ID_VP8 || codec->id == AV_CODEC_ID_VP9 ||
               codec->id == AV_CODEC_ID_AV1 || codec->id == AV_CODEC_ID_OPUS ||
               codec->id == AV_CODEC_ID_VORBIS;
    if (muxer == "flac")
        return codec->id == AV_CODEC_ID_FLAC;
    const AVOutputFormat* format = av_guess_format(muxer.c_str(), nullptr, nullptr);
    return format != nullptr &&
           avformat_query_codec(format, codec->id, FF_COMPLIANCE_EXPERIMENTAL) == 1;
}

} // namespace

int ClipContainer::fixedScale() const {
    constexpr int milliseconds = 1000;
    return mp4 || !pictures ? 0 : milliseconds;
}

const ClipContainer& containerOf(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    for (const ClipContainer& container : containers) {
        if (extension == container.extension)
            return container;
    }
    const auto any = [](const ClipContainer&, const AVCodec*) { return true; };
    refuse(path, "the name does not end as that of a clip does: " + names(any, nullptr));
}

void requireHolds(const ClipContainer& container, const AVCodec& codec, const std::string& path) {
    if (holds(container, &codec))
        return;
    const std::string able = names(holds, &codec);
    refuse(path, std::string(container.extension) + " cannot hold what the encoder " + codec.name +
                     " makes" + (able.empty() ? "" : "; " + able + " can"));
}

} // namespace tio::ffmpeg::detail
