#pragma once

#include "ffmpeg_compat.h"

namespace tio::ffmpeg::detail {

/// The functions of libavfilter that are called here, under its own names.
///
/// Only pictures that have to be turned need them, but the forty libraries that this one depends on
/// cost a process some 13 ms and 13 MiB. So it is loaded when the first filter is made, and stays.
struct FilterLibrary {
    decltype(&::avfilter_version) version;
    decltype(&::avfilter_graph_alloc) graph_alloc;
    decltype(&::avfilter_graph_free) graph_free;
    decltype(&::avfilter_graph_config) graph_config;
    decltype(&::avfilter_graph_create_filter) graph_create_filter;
    decltype(&::avfilter_graph_parse_ptr) graph_parse_ptr;
    decltype(&::avfilter_get_by_name) get_by_name;
    decltype(&::avfilter_inout_alloc) inout_alloc;
    decltype(&::avfilter_inout_free) inout_free;
    decltype(&::av_buffersrc_add_frame_flags) buffersrc_add_frame_flags;
    decltype(&::av_buffersink_get_frame) buffersink_get_frame;
};

/// Loads it if need be; any thread may ask. A build with TARN_LINK_FILTERS has it linked instead.
/// @throws Exception when it cannot be loaded, and tries again the next time
[[nodiscard]] const FilterLibrary& filterLibrary();

} // namespace tio::ffmpeg::detail
