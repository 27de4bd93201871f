#pragma once

#include "base/handles.h"
#include "ffmpeg_compat.h"

#include <map>
#include <memory>
#include <string>

/// Passes decoded frames through a chain of FFmpeg's video filters, one frame in, one frame out.
/// Thread rule: used by one thread at a time.
class FfmpegVideoFilter {
public:
    /// For frames of the stream, through a chain such as "vflip,hflip".
    /// @throws tio::ffmpeg::Exception when the chain cannot be built
    FfmpegVideoFilter(const AVStream* stream, const std::string& description);
    ~FfmpegVideoFilter();
    FfmpegVideoFilter(const FfmpegVideoFilter&) = delete;
    FfmpegVideoFilter& operator=(const FfmpegVideoFilter&) = delete;

    /// Replaces the frame's picture by the filtered one.
    /// @throws tio::Exception when the frame is not of the size and format of the stream
    /// @throws tio::ffmpeg::Exception when FFmpeg refuses it
    void filterFrame(AVFrame* frame);

private:
    void connect(const std::string& description);
    void requireSourceFormat(const AVFrame& frame) const;

    tio::ffmpeg::detail::FilterGraphHandle graph;
    AVFilterContext* source = nullptr; // both owned by the graph
    AVFilterContext* sink = nullptr;
};

/// The filter that turns pictures upright, for 1 (90 degrees clockwise), 2 (180) or 3 (270) quarter
/// turns.
[[nodiscard]] std::shared_ptr<FfmpegVideoFilter> makeRotationFilter(const AVStream* stream,
                                                                    int rotation);

/// Adds a filter to a graph, with its arguments in the order of their names.
/// @throws tio::ffmpeg::Exception when there is no such filter or it refuses the arguments
[[nodiscard]] AVFilterContext* createFilter(const std::string& filterName,
                                            const std::string& instanceName,
                                            const std::map<std::string, std::string>& arguments,
                                            AVFilterGraph* graph);
