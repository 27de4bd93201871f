#pragma once

#include <memory>

struct AVCodecContext;
struct AVCodecParameters;
struct AVFilterGraph;
struct AVFilterInOut;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

/// @file
/// Owners of FFmpeg's handles. A `unique_ptr` of these owns, a raw pointer borrows; no other file
/// calls a release function of FFmpeg for them.

namespace tio::ffmpeg::detail {

/// Calls the release function that FFmpeg provides for each kind of handle.
struct Release {
    void operator()(AVCodecContext* context) const noexcept;
    void operator()(AVCodecParameters* parameters) const noexcept;
    void operator()(AVFilterGraph* graph) const noexcept;
    void operator()(AVFilterInOut* list) const noexcept;
    void operator()(AVFormatContext* openedInput) const noexcept;
    void operator()(AVFrame* frame) const noexcept;
    void operator()(AVPacket* packet) const noexcept;
    void operator()(SwsContext* context) const noexcept;
};

using CodecContextHandle = std::unique_ptr<AVCodecContext, Release>;
using CodecParametersHandle = std::unique_ptr<AVCodecParameters, Release>;
using FilterGraphHandle = std::unique_ptr<AVFilterGraph, Release>;
using FilterInOutHandle = std::unique_ptr<AVFilterInOut, Release>;
using InputContextHandle = std::unique_ptr<AVFormatContext, Release>;
using FrameHandle = std::unique_ptr<AVFrame, Release>;
using PacketHandle = std::unique_ptr<AVPacket, Release>;
using SwsContextHandle = std::unique_ptr<SwsContext, Release>;

} // namespace tio::ffmpeg::detail
