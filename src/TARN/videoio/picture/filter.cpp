#include "picture/filter.h"

#include "base/checks.h"
#include "base/filterLibrary.h"

#include <new>
#include <utility>

using tio::ffmpeg::detail::checkResult;
using tio::ffmpeg::detail::failAssertion;
using tio::ffmpeg::detail::FilterInOutHandle;
using tio::ffmpeg::detail::filterLibrary;
using tio::ffmpeg::detail::Places;

namespace {

constexpr Places at("filter");

std::string fraction(AVRational value) {
    return std::to_string(value.num) + "/" + std::to_string(value.den);
}

std::map<std::string, std::string> sourceArguments(const AVStream& stream) {
    const AVCodecParameters& parameters = *stream.codecpar;
    return {
        {"pix_fmt", std::to_string(parameters.format)},
        {"pixel_aspect", fraction(parameters.sample_aspect_ratio)},
        {"time_base", fraction(stream.time_base)},
        {"video_size", std::to_string(parameters.width) + "x" + std::to_string(parameters.height)},
    };
}

std::string joined(const std::map<std::string, std::string>& arguments) {
    std::string text;
    for (const auto& [key, value] : arguments)
        text.append(text.empty() ? "" : ":").append(key).append("=").append(value);
    return text;
}

/// An open end of the graph under its name in the chain.
FilterInOutHandle openEnd(const char* name, AVFilterContext* filter) {
    FilterInOutHandle end(filterLibrary().inout_alloc());
    if (!end)
        throw std::bad_alloc();
    end->name = av_strdup(name);
    if (end->name == nullptr) // FFmpeg would compare it with the names in the chain
        throw std::bad_alloc();
    end->filter_ctx = filter;
    end->pad_idx = 0;
    end->next = nullptr;
    return end;
}

} // namespace

AVFilterContext* createFilter(const std::string& filterName, const std::string& instanceName,
                              const std::map<std::string, std::string>& arguments,
                              AVFilterGraph* graph) {
    const std::string text = joined(arguments);
    AVFilterContext* context = nullptr;
    checkResult(filterLibrary().graph_create_filter(
                    &context, filterLibrary().get_by_name(filterName.c_str()), instanceName.c_str(),
                    arguments.empty() ? nullptr : text.c_str(), nullptr, graph),
                at(62));
    return context;
}

FfmpegVideoFilter::FfmpegVideoFilter(const AVStream* stream, const std::string& description)
    : graph(filterLibrary().graph_alloc()) {
    if (!graph)
        throw std::bad_alloc();
    source = createFilter("buffer", "in", sourceArguments(*stream), graph.get());
    sink = createFilter("buffersink", "out", {}, graph.get());
    connect(description);
}

FfmpegVideoFilter::~FfmpegVideoFilter() = default;

void FfmpegVideoFilter::connect(const std::string& description) {
    // Named from the chain's side: what the source puts out is where the chain begins.
    FilterInOutHandle begin = openEnd("in", source);
    FilterInOutHandle finish = openEnd("out", sink);
    AVFilterInOut* outputs = begin.release();
    AVFilterInOut* inputs = finish.release();
    const int parsed = filterLibrary().graph_parse_ptr(graph.get(), description.c_str(), &inputs,
                                                       &outputs, nullptr);
    // FFmpeg took what it used and left the rest in these lists.
    const FilterInOutHandle restOfOutputs(outputs);
    const FilterInOutHandle restOfInputs(inputs);
    checkResult(parsed, at(126));
    checkResult(filterLibrary().graph_config(graph.get(), nullptr), at(129));
}

// The filters read as many rows and columns as the stream announced; a smaller frame, as damaged
// files have them, would be read past its end.
void FfmpegVideoFilter::requireSourceFormat(const AVFrame& frame) const {
    const AVFilterLink& link = *source->outputs[0];
    const bool fits =
        frame.width == link.w && frame.height == link.h && frame.format == link.format;
    if (!fits)
        failAssertion("Picture size or format changed in a rotated stream", "fits", at(146));
}

void FfmpegVideoFilter::filterFrame(AVFrame* frame) {
    requireSourceFormat(*frame);
    checkResult(
        filterLibrary().buffersrc_add_frame_flags(source, frame, AV_BUFFERSRC_FLAG_KEEP_REF),
        at(152));
    av_frame_unref(frame);
    checkResult(filterLibrary().buffersink_get_frame(sink, frame), at(159));
}

std::shared_ptr<FfmpegVideoFilter> makeRotationFilter(const AVStream* stream, int rotation) {
    const char* chain = "transpose=dir=1";
    if (rotation == 2)
        chain = "vflip,hflip";
    else if (rotation == 3)
        chain = "transpose=dir=2";
    return std::make_shared<FfmpegVideoFilter>(stream, chain);
}
