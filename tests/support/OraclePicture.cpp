#include "support/OraclePicture.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/imgutils.h>
}

#include <array>
#include <cstddef>

namespace tio::test {

namespace {

const char* chainFor(int quarterTurns) {
    switch (quarterTurns) {
    case 1:
        return "transpose=dir=1";
    case 2:
        return "vflip,hflip";
    default:
        return "transpose=dir=2";
    }
}

std::string ratio(AVRational value) {
    return std::to_string(value.num) + "/" + std::to_string(value.den);
}

AVFilterContext* createFilter(AVFilterGraph& graph, const char* filter, const char* arguments) {
    AVFilterContext* context = nullptr;
    check(avfilter_graph_create_filter(&context, avfilter_get_by_name(filter), filter, arguments,
                                       nullptr, &graph),
          std::string("filter ") + filter);
    return context;
}

AVFilterInOut* endpoint(const char* name, AVFilterContext* filter) {
    AVFilterInOut* end = checkFound(avfilter_inout_alloc(), "filter endpoint");
    end->name = av_strdup(name);
    end->filter_ctx = filter;
    return end;
}

} // namespace

OracleRotator::OracleRotator(const AVStream& stream, int quarterTurns)
    : graph(checkFound(avfilter_graph_alloc(), "filter graph")) {
    const AVCodecParameters& parameters = *stream.codecpar;
    const std::string arguments =
        "video_size=" + std::to_string(parameters.width) + "x" + std::to_string(parameters.height) +
        ":pix_fmt=" + std::to_string(parameters.format) + ":time_base=" + ratio(stream.time_base) +
        ":pixel_aspect=" + ratio(parameters.sample_aspect_ratio);
    source = createFilter(*graph, "buffer", arguments.c_str());
    sink = createFilter(*graph, "buffersink", nullptr);
    AVFilterInOut* outputs = endpoint("in", source); // names as seen from the chain between them
    AVFilterInOut* inputs = endpoint("out", sink);
    const int parsed =
        avfilter_graph_parse_ptr(graph.get(), chainFor(quarterTurns), &inputs, &outputs, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    check(parsed, "rotation chain");
    check(avfilter_graph_config(graph.get(), nullptr), "rotation graph");
}

void OracleRotator::turn(AVFrame& frame) {
    check(av_buffersrc_add_frame_flags(source, &frame, 0), "frame into the rotation");
    av_frame_unref(&frame);
    check(av_buffersink_get_frame(sink, &frame), "frame out of the rotation");
}

OracleConverter::PaddedPlane::PaddedPlane(int usedOfRow, int rowCount)
    : rowBytes(usedOfRow),
      rows(rowCount),
      stride((usedOfRow + 127) / 64 * 64),
      bytes(static_cast<std::size_t>(stride) * static_cast<std::size_t>(rowCount) + 64) {}

void OracleConverter::prepare(const AVFrame& frame) {
    if (scaler && frame.width == width && frame.height == height && frame.format == sourceFormat)
        return;
    width = frame.width;
    height = frame.height;
    sourceFormat = frame.format;
    const bool rgb = format == OracleFormat::Rgb;
    scaler.reset(checkFound(sws_getContext(width, height, static_cast<AVPixelFormat>(sourceFormat),
                                           width, height, rgb ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_NV12,
                                           SWS_BICUBIC, nullptr, nullptr, nullptr),
                            "pixel conversion"));
    planes.clear();
    planes.emplace_back(rgb ? 3 * width : width, height);
    if (!rgb)
        planes.emplace_back(width + width % 2, (height + 1) / 2);
}

/// NV12 to NV12 by libswscale leaves the chroma plane unwritten before FFmpeg 9.
void OracleConverter::copyPlanes(const AVFrame& frame) {
    for (std::size_t i = 0; i < planes.size(); ++i)
        av_image_copy_plane(planes[i].bytes.data(), planes[i].stride, frame.data[i],
                            frame.linesize[i], planes[i].rowBytes, planes[i].rows);
}

void OracleConverter::convert(const AVFrame& frame) {
    prepare(frame);
    if (format == OracleFormat::Nv12 && frame.format == AV_PIX_FMT_NV12) {
        copyPlanes(frame);
        return;
    }
    std::array<uint8_t*, 4> data{};
    std::array<int, 4> strides{};
    for (std::size_t i = 0; i < planes.size(); ++i) {
        data[i] = planes[i].bytes.data();
        strides[i] = planes[i].stride;
    }
    check(sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, data.data(),
                    strides.data()),
          "pixel conversion");
}

uint64_t OracleConverter::hash() const {
    uint64_t hash = emptyHash;
    for (const PaddedPlane& plane : planes)
        hash = hashRows(plane.bytes.data(), plane.stride, plane.rows, plane.rowBytes, hash);
    return hash;
}

std::vector<uint8_t> OracleConverter::pixels() const {
    std::vector<uint8_t> pixels;
    for (const PaddedPlane& plane : planes) {
        for (int row = 0; row < plane.rows; ++row) {
            const uint8_t* begin = plane.bytes.data() + std::ptrdiff_t{row} * plane.stride;
            pixels.insert(pixels.end(), begin, begin + plane.rowBytes);
        }
    }
    return pixels;
}

} // namespace tio::test
