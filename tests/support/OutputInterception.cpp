#include "support/Interception.h"

using tio::test::calls;
using tio::test::Intercepted;

namespace {

template <typename Signature, typename Real, typename... Arguments>
auto answer(Intercepted<Signature>& call, Real real, Arguments... arguments) {
    ++call.count;
    return call.instead ? call.instead(arguments...) : real(arguments...);
}

} // namespace

// The linker sends every call of NAME to __wrap_NAME and offers the original as __real_NAME.
extern "C" {

// The output format's constness differs between FFmpeg releases and does not matter to the linker.
int __real_avformat_alloc_output_context2(AVFormatContext**, const void*, const char*, const char*);
int __wrap_avformat_alloc_output_context2(AVFormatContext** context, const void* type,
                                          const char* format, const char* path) {
    const auto real = [type](AVFormatContext** made, const char* name, const char* file) {
        return __real_avformat_alloc_output_context2(made, type, name, file);
    };
    return answer(calls().avformat_alloc_output_context2, real, context, format, path);
}

AVStream* __real_avformat_new_stream(AVFormatContext*, const AVCodec*);
AVStream* __wrap_avformat_new_stream(AVFormatContext* context, const AVCodec* codec) {
    return answer(calls().avformat_new_stream, __real_avformat_new_stream, context, codec);
}

int __real_avcodec_parameters_copy(AVCodecParameters*, const AVCodecParameters*);
int __wrap_avcodec_parameters_copy(AVCodecParameters* target, const AVCodecParameters* source) {
    return answer(calls().avcodec_parameters_copy, __real_avcodec_parameters_copy, target, source);
}

int __real_avio_open(AVIOContext**, const char*, int);
int __wrap_avio_open(AVIOContext** file, const char* path, int flags) {
    return answer(calls().avio_open, __real_avio_open, file, path, flags);
}

int __real_avformat_write_header(AVFormatContext*, AVDictionary**);
int __wrap_avformat_write_header(AVFormatContext* context, AVDictionary** options) {
    return answer(calls().avformat_write_header, __real_avformat_write_header, context, options);
}

int __real_av_interleaved_write_frame(AVFormatContext*, AVPacket*);
int __wrap_av_interleaved_write_frame(AVFormatContext* context, AVPacket* packet) {
    return answer(calls().av_interleaved_write_frame, __real_av_interleaved_write_frame, context,
                  packet);
}

int __real_av_write_trailer(AVFormatContext*);
int __wrap_av_write_trailer(AVFormatContext* context) {
    return answer(calls().av_write_trailer, __real_av_write_trailer, context);
}

int __real_avio_closep(AVIOContext**);
int __wrap_avio_closep(AVIOContext** file) {
    return answer(calls().avio_closep, __real_avio_closep, file);
}

void __real_avformat_free_context(AVFormatContext*);
void __wrap_avformat_free_context(AVFormatContext* context) {
    answer(calls().avformat_free_context, __real_avformat_free_context, context);
}

AVCodecContext* __real_avcodec_alloc_context3(const AVCodec*);
AVCodecContext* __wrap_avcodec_alloc_context3(const AVCodec* codec) {
    return answer(calls().avcodec_alloc_context3, __real_avcodec_alloc_context3, codec);
}

const AVCodec* __real_avcodec_find_encoder(AVCodecID);
const AVCodec* __wrap_avcodec_find_encoder(AVCodecID id) {
    return answer(calls().avcodec_find_encoder, __real_avcodec_find_encoder, id);
}

int __real_avcodec_send_frame(AVCodecContext*, const AVFrame*);
int __wrap_avcodec_send_frame(AVCodecContext* context, const AVFrame* frame) {
    return answer(calls().avcodec_send_frame, __real_avcodec_send_frame, context, frame);
}

int __real_avcodec_receive_packet(AVCodecContext*, AVPacket*);
int __wrap_avcodec_receive_packet(AVCodecContext* context, AVPacket* packet) {
    return answer(calls().avcodec_receive_packet, __real_avcodec_receive_packet, context, packet);
}

int __real_avcodec_parameters_from_context(AVCodecParameters*, const AVCodecContext*);
int __wrap_avcodec_parameters_from_context(AVCodecParameters* parameters,
                                           const AVCodecContext* context) {
    return answer(calls().avcodec_parameters_from_context, __real_avcodec_parameters_from_context,
                  parameters, context);
}

int __real_av_dict_set(AVDictionary**, const char*, const char*, int);
int __wrap_av_dict_set(AVDictionary** options, const char* key, const char* value, int flags) {
    return answer(calls().av_dict_set, __real_av_dict_set, options, key, value, flags);
}

AVFrame* __real_av_frame_alloc();
AVFrame* __wrap_av_frame_alloc() {
    return answer(calls().av_frame_alloc, __real_av_frame_alloc);
}

int __real_av_frame_get_buffer(AVFrame*, int);
int __wrap_av_frame_get_buffer(AVFrame* frame, int alignment) {
    return answer(calls().av_frame_get_buffer, __real_av_frame_get_buffer, frame, alignment);
}

AVPacket* __real_av_packet_alloc();
AVPacket* __wrap_av_packet_alloc() {
    return answer(calls().av_packet_alloc, __real_av_packet_alloc);
}

} // extern "C"

namespace tio::test::real {

int allocateOutput(AVFormatContext** context, const char* format, const char* path) {
    return __real_avformat_alloc_output_context2(context, nullptr, format, path);
}

int openFile(AVIOContext** file, const char* path, int flags) {
    return __real_avio_open(file, path, flags);
}

int closeFile(AVIOContext** file) {
    return __real_avio_closep(file);
}

int writeInterleaved(AVFormatContext* context, AVPacket* packet) {
    return __real_av_interleaved_write_frame(context, packet);
}

int writeTrailer(AVFormatContext* context) {
    return __real_av_write_trailer(context);
}

void freeContext(AVFormatContext* context) {
    __real_avformat_free_context(context);
}

AVStream* newStream(AVFormatContext* context, const AVCodec* codec) {
    return __real_avformat_new_stream(context, codec);
}

int sendFrame(AVCodecContext* context, const AVFrame* frame) {
    return __real_avcodec_send_frame(context, frame);
}

int receivePacket(AVCodecContext* context, AVPacket* packet) {
    return __real_avcodec_receive_packet(context, packet);
}

AVPacket* allocatePacket() {
    return __real_av_packet_alloc();
}

int setOption(AVDictionary** options, const char* key, const char* value, int flags) {
    return __real_av_dict_set(options, key, value, flags);
}

int getBuffer(AVFrame* frame, int alignment) {
    return __real_av_frame_get_buffer(frame, alignment);
}

} // namespace tio::test::real
