#pragma once

#include "ffmpeg_compat.h"

#include <atomic>
#include <cstdio>
#include <functional>

/// @file
/// Calls that the library makes into FFmpeg and the C library, counted and replaceable. The test
/// program is linked with `--wrap` for each of them, so the library's own objects are unchanged.

namespace tio::test {

/// A number of calls, which may come from several threads at once.
class CallCount {
public:
    CallCount(int count = 0) : value(count) {}
    CallCount(const CallCount& other) : value(other.value.load()) {}
    CallCount& operator=(const CallCount& other) {
        value = other.value.load();
        return *this;
    }
    void operator++() { ++value; }
    operator int() const { return value; }

private:
    std::atomic<int> value;
};

/// One intercepted function: how often it was called and, where set, what answers instead.
template <typename Signature>
struct Intercepted {
    CallCount count;
    std::function<Signature> instead; ///< empty: the real function answers
};

/// Every intercepted function under the name it has in C.
struct Calls {
    Intercepted<int(AVFormatContext*, AVPacket*)> av_read_frame;
    Intercepted<int(AVFormatContext*, int, int64_t, int)> av_seek_frame;
    Intercepted<int(AVFormatContext**, const char*, AVDictionary**)> avformat_open_input;
    Intercepted<int(AVFormatContext*)> avformat_find_stream_info;
    Intercepted<int(AVPacket*, const AVPacket*)> av_packet_ref;
    Intercepted<int(AVCodecContext*, const AVPacket*)> avcodec_send_packet;
    Intercepted<int(AVCodecContext*, AVFrame*)> avcodec_receive_frame;
    Intercepted<int(AVCodecContext*)> avcodec_open2;
    Intercepted<int(AVCodecContext*, const AVCodecParameters*)> avcodec_parameters_to_context;
    Intercepted<void(AVCodecContext*)> avcodec_flush_buffers;
    Intercepted<int(SwsContext*)> sws_scale;
    Intercepted<int(const char* filter, const char* name, const char* arguments)>
        avfilter_graph_create_filter;
    Intercepted<int(const char* chain)> avfilter_graph_parse_ptr;
    Intercepted<int(AVFilterGraph*)> avfilter_graph_config;
    Intercepted<int(AVFilterContext*, AVFrame*, int)> av_buffersrc_add_frame_flags;
    Intercepted<int(AVFilterContext*, AVFrame*)> av_buffersink_get_frame;
    Intercepted<int(std::FILE*, long, int)> fseek;
    Intercepted<long(std::FILE*)> ftell;
    Intercepted<char*(const char*)> av_strdup;
    Intercepted<void*(size_t)> malloc;
    Intercepted<size_t(void*, size_t, size_t, std::FILE*)> fread;
    Intercepted<size_t(const void*, size_t, size_t, std::FILE*)> fwrite;
    Intercepted<int(std::FILE*)> fclose;

    // Of the writing side, in OutputInterception.cpp.
    Intercepted<int(AVFormatContext**, const char* format, const char* path)>
        avformat_alloc_output_context2;
    Intercepted<AVStream*(AVFormatContext*, const AVCodec*)> avformat_new_stream;
    Intercepted<int(AVCodecParameters*, const AVCodecParameters*)> avcodec_parameters_copy;
    Intercepted<int(AVIOContext**, const char*, int)> avio_open;
    Intercepted<int(AVFormatContext*, AVDictionary**)> avformat_write_header;
    Intercepted<int(AVFormatContext*, AVPacket*)> av_interleaved_write_frame;
    Intercepted<int(AVFormatContext*)> av_write_trailer;
    Intercepted<int(AVIOContext**)> avio_closep;
    Intercepted<void(AVFormatContext*)> avformat_free_context;
    Intercepted<const AVCodec*(AVCodecID)> avcodec_find_encoder;
    Intercepted<AVCodecContext*(const AVCodec*)> avcodec_alloc_context3;
    Intercepted<int(AVCodecContext*, const AVFrame*)> avcodec_send_frame;
    Intercepted<int(AVCodecContext*, AVPacket*)> avcodec_receive_packet;
    Intercepted<int(AVCodecParameters*, const AVCodecContext*)> avcodec_parameters_from_context;
    Intercepted<int(AVDictionary**, const char*, const char*, int)> av_dict_set;
    Intercepted<AVFrame*()> av_frame_alloc;
    Intercepted<int(AVFrame*, int)> av_frame_get_buffer;
    Intercepted<AVPacket*()> av_packet_alloc;

    /// Told the options of every codec that is opened, null for none.
    std::function<void(const AVDictionary*)> codecOptions;
};

/// What is being intercepted now.
Calls& calls();

/// Starts from a clean slate and leaves one. One at a time; a test that intercepts makes one
/// first.
class Interception {
public:
    Interception() { calls() = {}; }
    Interception(const Interception&) = delete;
    Interception& operator=(const Interception&) = delete;
    ~Interception() { calls() = {}; }

    Calls* operator->() const { return &calls(); }
};

/// The real functions, for a replacement that passes some calls on.
namespace real {
int readFrame(AVFormatContext* context, AVPacket* packet);
int seekFrame(AVFormatContext* context, int stream, int64_t timestamp, int flags);
int sendPacket(AVCodecContext* context, const AVPacket* packet);
int receiveFrame(AVCodecContext* context, AVFrame* frame);
int allocateOutput(AVFormatContext** context, const char* format, const char* path);
int openFile(AVIOContext** file, const char* path, int flags);
int closeFile(AVIOContext** file);
int writeInterleaved(AVFormatContext* context, AVPacket* packet);
int writeTrailer(AVFormatContext* context);
void freeContext(AVFormatContext* context);
AVStream* newStream(AVFormatContext* context, const AVCodec* codec);
int sendFrame(AVCodecContext* context, const AVFrame* frame);
int receivePacket(AVCodecContext* context, AVPacket* packet);
AVPacket* allocatePacket();
int reference(AVPacket* target, const AVPacket* source);
int setOption(AVDictionary** options, const char* key, const char* value, int flags);
int getBuffer(AVFrame* frame, int alignment);
void* allocate(size_t size);
size_t read(void* to, size_t size, size_t count, std::FILE* file);
size_t write(const void* from, size_t size, size_t count, std::FILE* file);
} // namespace real

} // namespace tio::test
