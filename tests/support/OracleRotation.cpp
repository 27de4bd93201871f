#include "support/Oracle.h"

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

struct SideData {
    const AVPacketSideData* entries;
    int count;
};

/// Side data lies in the codec parameters where those have a place for it, as FFmpeg's headers
/// tell.
template <typename Stream>
auto sideDataOf(const Stream& stream, int)
    -> decltype(stream.codecpar->coded_side_data, SideData()) {
    return {stream.codecpar->coded_side_data, stream.codecpar->nb_coded_side_data};
}

/// Otherwise in the stream.
template <typename Stream>
SideData sideDataOf(const Stream& stream, long) {
    return {stream.side_data, stream.nb_side_data};
}

const int32_t* matrixOf(const AVStream& stream) {
    const SideData sideData = sideDataOf(stream, 0); // an int, so that the first is tried first
    for (int i = 0; i < sideData.count; ++i) {
        if (sideData.entries[i].type == AV_PKT_DATA_DISPLAYMATRIX)
            return reinterpret_cast<const int32_t*>(sideData.entries[i].data);
    }
    return nullptr;
}

/// The angle as MOV demuxers used to put it into the "rotate" tag; empty without a matrix.
std::string matrixAngle(const AVStream* stream) {
    const int32_t* matrix = matrixOf(*stream);
    if (!matrix)
        return {};
    double angle = -av_display_rotation_get(matrix);
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
