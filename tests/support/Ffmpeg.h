#pragma once

#include <cstdint> // also gives FFmpeg the constant macros that it asks for
#include <memory>
#include <stdexcept>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

/// @file
/// The few pieces that the test support needs to call FFmpeg safely. They are its own, and not
/// those of the library under test, so that a mistake there cannot make both sides agree.

namespace tio::test {

/// Passes a result of FFmpeg on, or throws with FFmpeg's words and what was being done.
inline int check(int result, const std::string& doing) {
    if (result >= 0)
        return result;
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(result, text, sizeof text);
    throw std::runtime_error("test media: " + doing + ": " + text);
}

/// Passes a pointer on, or throws when FFmpeg gave none.
template <typename T>
T* checkFound(T* pointer, const std::string& what) {
    if (!pointer)
        throw std::runtime_error("test media: no " + what);
    return pointer;
}

struct Close {
    void operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const noexcept { av_frame_free(&frame); }
    void operator()(AVCodecContext* context) const noexcept { avcodec_free_context(&context); }
    void operator()(AVCodecParameters* parameters) const noexcept {
        avcodec_parameters_free(&parameters);
    }
    void operator()(AVFilterGraph* graph) const noexcept { avfilter_graph_free(&graph); }
    void operator()(SwsContext* context) const noexcept { sws_freeContext(context); }
};

struct CloseInput {
    void operator()(AVFormatContext* context) const noexcept { avformat_close_input(&context); }
};

struct CloseOutput {
    void operator()(AVFormatContext* context) const noexcept {
        avio_closep(&context->pb);
        avformat_free_context(context);
    }
};

using PacketPointer = std::unique_ptr<AVPacket, Close>;
using FramePointer = std::unique_ptr<AVFrame, Close>;
using CodecPointer = std::unique_ptr<AVCodecContext, Close>;
using GraphPointer = std::unique_ptr<AVFilterGraph, Close>;
using ScalerPointer = std::unique_ptr<SwsContext, Close>;
using InputPointer = std::unique_ptr<AVFormatContext, CloseInput>;
using OutputPointer = std::unique_ptr<AVFormatContext, CloseOutput>;

} // namespace tio::test
