#include "media/Oracle.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/display.h>
}

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace tio::test {

namespace {

/// The angle as MOV demuxers used to put it into the "rotate" tag; empty without a matrix.
std::string matrixAngle(const AVStream* stream) {
    const uint8_t* matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    if (!matrix)
        return {};
    double angle = -av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
    if (std::isnan(angle))
        return {};
    if (angle < 0)
        angle += 360;
    char text[32] = {};
    std::snprintf(text, sizeof text, "%g", angle);
    return text;
}

} // namespace

int oracleQuarterTurns(const AVStream* stream) {
    const AVDictionaryEntry* tag = av_dict_get(stream->metadata, "rotate", nullptr, 0);
    const std::string text = tag ? tag->value : matrixAngle(stream);
    char* end = nullptr;
    const long degrees = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0')
        return 0;
    const long positive = degrees < 0 ? degrees + 360 : degrees;
    return positive == 90 || positive == 180 || positive == 270 ? static_cast<int>(positive / 90)
                                                                : 0;
}

} // namespace tio::test
