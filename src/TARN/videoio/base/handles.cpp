#include "base/handles.h"

#include "base/filterLibrary.h"
#include "ffmpeg_compat.h"

namespace tio::ffmpeg::detail {

void Release::operator()(AVCodecContext* context) const noexcept {
    compat::freeCodecContext(context);
}

void Release::operator()(AVCodecParameters* parameters) const noexcept {
    avcodec_parameters_free(&parameters);
}

// What there is a graph of has been loaded, so that the library does not throw here.
void Release::operator()(AVFilterGraph* graph) const noexcept {
    filterLibrary().graph_free(&graph);
}

void Release::operator()(AVFilterInOut* list) const noexcept {
    filterLibrary().inout_free(&list);
}

void Release::operator()(AVFormatContext* openedInput) const noexcept {
    avformat_close_input(&openedInput);
}

void Release::operator()(AVFrame* frame) const noexcept {
    av_frame_free(&frame);
}

void Release::operator()(AVPacket* packet) const noexcept {
    av_packet_free(&packet);
}

void Release::operator()(SwsContext* context) const noexcept {
    sws_freeContext(context);
}

} // namespace tio::ffmpeg::detail
