#include "support/Interception.h"

namespace tio::test {

Calls& calls() {
    static Calls instance;
    return instance;
}

} // namespace tio::test

using tio::test::calls;

// The linker sends every call of NAME to __wrap_NAME and offers the original as __real_NAME.
extern "C" {

int __real_av_read_frame(AVFormatContext*, AVPacket*);
int __wrap_av_read_frame(AVFormatContext* context, AVPacket* packet) {
    auto& call = calls().av_read_frame;
    ++call.count;
    return call.instead ? call.instead(context, packet) : __real_av_read_frame(context, packet);
}

int __real_av_seek_frame(AVFormatContext*, int, int64_t, int);
int __wrap_av_seek_frame(AVFormatContext* context, int stream, int64_t timestamp, int flags) {
    auto& call = calls().av_seek_frame;
    ++call.count;
    return call.instead ? call.instead(context, stream, timestamp, flags)
                        : __real_av_seek_frame(context, stream, timestamp, flags);
}

// The input format's constness differs between FFmpeg releases and does not matter to the linker.
int __real_avformat_open_input(AVFormatContext**, const char*, const void*, AVDictionary**);
int __wrap_avformat_open_input(AVFormatContext** context, const char* url, const void* format,
                               AVDictionary** options) {
    auto& call = calls().avformat_open_input;
    ++call.count;
    return call.instead ? call.instead(context, url, options)
                        : __real_avformat_open_input(context, url, format, options);
}

int __real_avformat_find_stream_info(AVFormatContext*, AVDictionary**);
int __wrap_avformat_find_stream_info(AVFormatContext* context, AVDictionary** options) {
    auto& call = calls().avformat_find_stream_info;
    ++call.count;
    return call.instead ? call.instead(context)
                        : __real_avformat_find_stream_info(context, options);
}

int __real_av_packet_ref(AVPacket*, const AVPacket*);
int __wrap_av_packet_ref(AVPacket* target, const AVPacket* source) {
    auto& call = calls().av_packet_ref;
    ++call.count;
    return call.instead ? call.instead(target, source) : __real_av_packet_ref(target, source);
}

int __real_avcodec_send_packet(AVCodecContext*, const AVPacket*);
int __wrap_avcodec_send_packet(AVCodecContext* context, const AVPacket* packet) {
    auto& call = calls().avcodec_send_packet;
    ++call.count;
    return call.instead ? call.instead(context, packet)
                        : __real_avcodec_send_packet(context, packet);
}

int __real_avcodec_receive_frame(AVCodecContext*, AVFrame*);
int __wrap_avcodec_receive_frame(AVCodecContext* context, AVFrame* frame) {
    auto& call = calls().avcodec_receive_frame;
    ++call.count;
    return call.instead ? call.instead(context, frame)
                        : __real_avcodec_receive_frame(context, frame);
}

int __real_avcodec_open2(AVCodecContext*, const AVCodec*, AVDictionary**);
int __wrap_avcodec_open2(AVCodecContext* context, const AVCodec* codec, AVDictionary** options) {
    auto& call = calls().avcodec_open2;
    ++call.count;
    if (calls().codecOptions)
        calls().codecOptions(options != nullptr ? *options : nullptr);
    return call.instead ? call.instead(context) : __real_avcodec_open2(context, codec, options);
}

int __real_avcodec_parameters_to_context(AVCodecContext*, const AVCodecParameters*);
int __wrap_avcodec_parameters_to_context(AVCodecContext* context,
                                         const AVCodecParameters* parameters) {
    auto& call = calls().avcodec_parameters_to_context;
    ++call.count;
    return call.instead ? call.instead(context, parameters)
                        : __real_avcodec_parameters_to_context(context, parameters);
}

void __real_avcodec_flush_buffers(AVCodecContext*);
void __wrap_avcodec_flush_buffers(AVCodecContext* context) {
    auto& call = calls().avcodec_flush_buffers;
    ++call.count;
    call.instead ? call.instead(context) : __real_avcodec_flush_buffers(context);
}

int __real_sws_scale(SwsContext*, const uint8_t* const*, const int*, int, int, uint8_t* const*,
                     const int*);
int __wrap_sws_scale(SwsContext* context, const uint8_t* const* source, const int* sourceStride,
                     int firstRow, int rows, uint8_t* const* target, const int* targetStride) {
    auto& call = calls().sws_scale;
    ++call.count;
    return call.instead ? call.instead(context)
                        : __real_sws_scale(context, source, sourceStride, firstRow, rows, target,
                                           targetStride);
}

int __real_avfilter_graph_create_filter(AVFilterContext**, const AVFilter*, const char*,
                                        const char*, void*, AVFilterGraph*);
int __wrap_avfilter_graph_create_filter(AVFilterContext** context, const AVFilter* filter,
                                        const char* name, const char* arguments, void* opaque,
                                        AVFilterGraph* graph) {
    auto& call = calls().avfilter_graph_create_filter;
    ++call.count;
    if (call.instead) {
        const int answer =
            call.instead(filter != nullptr ? filter->name : nullptr, name, arguments);
        if (answer < 0)
            return answer;
    }
    return __real_avfilter_graph_create_filter(context, filter, name, arguments, opaque, graph);
}

int __real_avfilter_graph_parse_ptr(AVFilterGraph*, const char*, AVFilterInOut**, AVFilterInOut**,
                                    void*);
int __wrap_avfilter_graph_parse_ptr(AVFilterGraph* graph, const char* chain, AVFilterInOut** inputs,
                                    AVFilterInOut** outputs, void* logContext) {
    auto& call = calls().avfilter_graph_parse_ptr;
    ++call.count;
    if (call.instead) {
        const int answer = call.instead(chain);
        if (answer < 0)
            return answer;
    }
    return __real_avfilter_graph_parse_ptr(graph, chain, inputs, outputs, logContext);
}

int __real_avfilter_graph_config(AVFilterGraph*, void*);
int __wrap_avfilter_graph_config(AVFilterGraph* graph, void* logContext) {
    auto& call = calls().avfilter_graph_config;
    ++call.count;
    return call.instead ? call.instead(graph) : __real_avfilter_graph_config(graph, logContext);
}

int __real_av_buffersrc_add_frame_flags(AVFilterContext*, AVFrame*, int);
int __wrap_av_buffersrc_add_frame_flags(AVFilterContext* filter, AVFrame* frame, int flags) {
    auto& call = calls().av_buffersrc_add_frame_flags;
    ++call.count;
    return call.instead ? call.instead(filter, frame, flags)
                        : __real_av_buffersrc_add_frame_flags(filter, frame, flags);
}

int __real_av_buffersink_get_frame(AVFilterContext*, AVFrame*);
int __wrap_av_buffersink_get_frame(AVFilterContext* filter, AVFrame* frame) {
    auto& call = calls().av_buffersink_get_frame;
    ++call.count;
    return call.instead ? call.instead(filter, frame)
                        : __real_av_buffersink_get_frame(filter, frame);
}

int __real_fseek(std::FILE*, long, int);
int __wrap_fseek(std::FILE* file, long offset, int origin) {
    auto& call = calls().fseek;
    ++call.count;
    return call.instead ? call.instead(file, offset, origin) : __real_fseek(file, offset, origin);
}

long __real_ftell(std::FILE*);
long __wrap_ftell(std::FILE* file) {
    auto& call = calls().ftell;
    ++call.count;
    return call.instead ? call.instead(file) : __real_ftell(file);
}

char* __real_av_strdup(const char*);
char* __wrap_av_strdup(const char* text) {
    auto& call = calls().av_strdup;
    ++call.count;
    return call.instead ? call.instead(text) : __real_av_strdup(text);
}

void* __real_malloc(size_t);
void* __wrap_malloc(size_t size) {
    auto& call = calls().malloc;
    ++call.count;
    return call.instead ? call.instead(size) : __real_malloc(size);
}

size_t __real_fread(void*, size_t, size_t, std::FILE*);
size_t __wrap_fread(void* to, size_t size, size_t count, std::FILE* file) {
    auto& call = calls().fread;
    ++call.count;
    return call.instead ? call.instead(to, size, count, file) : __real_fread(to, size, count, file);
}

size_t __real_fwrite(const void*, size_t, size_t, std::FILE*);
size_t __wrap_fwrite(const void* from, size_t size, size_t count, std::FILE* file) {
    auto& call = calls().fwrite;
    ++call.count;
    return call.instead ? call.instead(from, size, count, file)
                        : __real_fwrite(from, size, count, file);
}

int __real_fclose(std::FILE*);
int __wrap_fclose(std::FILE* file) {
    auto& call = calls().fclose;
    ++call.count;
    return call.instead ? call.instead(file) : __real_fclose(file);
}

} // extern "C"

namespace tio::test::real {

int readFrame(AVFormatContext* context, AVPacket* packet) {
    return __real_av_read_frame(context, packet);
}

int seekFrame(AVFormatContext* context, int stream, int64_t timestamp, int flags) {
    return __real_av_seek_frame(context, stream, timestamp, flags);
}

int sendPacket(AVCodecContext* context, const AVPacket* packet) {
    return __real_avcodec_send_packet(context, packet);
}

int receiveFrame(AVCodecContext* context, AVFrame* frame) {
    return __real_avcodec_receive_frame(context, frame);
}

int reference(AVPacket* target, const AVPacket* source) {
    return __real_av_packet_ref(target, source);
}

void* allocate(size_t size) {
    return __real_malloc(size);
}

size_t read(void* to, size_t size, size_t count, std::FILE* file) {
    return __real_fread(to, size, count, file);
}

size_t write(const void* from, size_t size, size_t count, std::FILE* file) {
    return __real_fwrite(from, size, count, file);
}

} // namespace tio::test::real
