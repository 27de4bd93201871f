#pragma once

#include "ffmpeg_compat.h"

#include <TARN/videoio/Types.h>

#include <string_view>

/// @file
/// From FFmpeg's identifiers to our own.

namespace tio::ffmpeg::detail {

[[nodiscard]] inline Codec codecFromId(AVCodecID id) {
    switch (id) {
    case AV_CODEC_ID_H264:
        return Codec::H264;
    case AV_CODEC_ID_AAC:
        return Codec::Aac;
    default:
        return Codec::Unknown;
    }
}

/// Whether a demuxer's comma-separated list of names holds `name`.
[[nodiscard]] inline bool listHolds(std::string_view list, std::string_view name) {
    while (true) {
        const size_t comma = list.find(',');
        if (list.substr(0, comma) == name)
            return true;
        if (comma == std::string_view::npos)
            return false;
        list.remove_prefix(comma + 1);
    }
}

/// QuickTime and 3GP files are read by the MP4 demuxer and therefore count as Mp4.
[[nodiscard]] inline Container containerFromName(std::string_view names) {
    if (listHolds(names, "mp4"))
        return Container::Mp4;
    if (listHolds(names, "mpegts"))
        return Container::MpegTs;
    return Container::Unknown;
}

[[nodiscard]] inline StreamType streamTypeFrom(AVMediaType type) {
    switch (type) {
    case AVMEDIA_TYPE_VIDEO:
        return StreamType::Video;
    case AVMEDIA_TYPE_AUDIO:
        return StreamType::Audio;
    case AVMEDIA_TYPE_SUBTITLE:
        return StreamType::Subtitle;
    case AVMEDIA_TYPE_DATA:
        return StreamType::Data;
    case AVMEDIA_TYPE_ATTACHMENT:
        return StreamType::Attachment;
    default:
        return StreamType::Unknown;
    }
}

} // namespace tio::ffmpeg::detail
