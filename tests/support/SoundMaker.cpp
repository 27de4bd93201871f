#include "support/SoundMaker.h"

#include "ffmpeg_compat.h"
#include "support/Dictionary.h"
#include "support/Encoding.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <utility>

namespace tio::test {

namespace {

const char* const mixture =
    "0.3*sin(2*PI*(220+180*t)*t)+0.15*sin(2*PI*3300*t)*lt(mod(t\\,0.7)\\,0.4)"
    "+0.2*(random(0)-0.5)*lt(mod(t\\,0.5)\\,0.3)";

/// The plan's sample format, or the planar one where this release's encoder takes that alone.
std::string sampleFormatOf(const SoundPlan& plan) {
    const AVSampleFormat wanted = av_get_sample_fmt(plan.sampleFormat.c_str());
    const auto taken = ffmpeg::compat::sampleFormats(
        *checkFound(avcodec_find_encoder_by_name(plan.encoder.c_str()), plan.encoder));
    if (taken.empty() || std::find(taken.begin(), taken.end(), wanted) != taken.end())
        return plan.sampleFormat;
    return checkFound(av_get_sample_fmt_name(av_get_planar_sample_fmt(wanted)), "sample format");
}

/// A graph that gives the plan's samples in frames as large as the encoder wants.
class SampleSource {
public:
    explicit SampleSource(const SoundPlan& plan)
        : graph(checkFound(avfilter_graph_alloc(), "filter graph")) {
        const std::string expression = plan.expression.empty() ? mixture : plan.expression;
        const std::string chain = "aevalsrc=" + expression + ":s=" + std::to_string(plan.rate) +
                                  ":c=" + plan.layout + ":d=" + std::to_string(plan.seconds) +
                                  ",aformat=sample_fmts=" + sampleFormatOf(plan) +
                                  ":channel_layouts=" + plan.layout + ",abuffersink";
        check(avfilter_graph_parse_ptr(graph.get(), chain.c_str(), nullptr, nullptr, nullptr),
              "sound chain");
        check(avfilter_graph_config(graph.get(), nullptr), "sound graph");
        for (unsigned i = 0; i < graph->nb_filters; ++i)
            if (std::string(graph->filters[i]->filter->name) == "abuffersink")
                sink = graph->filters[i];
    }

    void setFrameSize(int samples) {
        av_buffersink_set_frame_size(sink, static_cast<unsigned>(samples));
    }

    /// False at the end.
    bool next(AVFrame& frame) { return av_buffersink_get_frame(sink, &frame) >= 0; }

private:
    GraphPointer graph;
    AVFilterContext* sink = nullptr;
};

CodecPointer openFor(const SoundPlan& plan, const AVFrame& first, bool globalHeader) {
    const AVCodec* codec =
        checkFound(avcodec_find_encoder_by_name(plan.encoder.c_str()), plan.encoder);
    CodecPointer encoder(checkFound(avcodec_alloc_context3(codec), "encoder"));
    encoder->sample_fmt = static_cast<AVSampleFormat>(first.format);
    encoder->sample_rate = plan.rate;
    encoder->time_base = {1, plan.rate};
    encoder->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    if (globalHeader)
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    ffmpeg::compat::setChannelMask(*encoder, ffmpeg::compat::channelMask(first));
    openEncoder(*encoder, plan.encoderOptions);
    return encoder;
}

/// Writes all packets that the encoder has, with what goes with them.
void passOn(AVCodecContext& encoder, AVFormatContext& output) {
    PacketPointer packet(checkFound(av_packet_alloc(), "packet"));
    for (;;) {
        const int result = avcodec_receive_packet(&encoder, packet.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return;
        check(result, "encoding");
        packet->stream_index = 0;
        av_packet_rescale_ts(packet.get(), encoder.time_base, output.streams[0]->time_base);
        check(av_interleaved_write_frame(&output, packet.get()), "writing");
    }
}

OutputPointer beginFile(const std::string& path, const SoundPlan& plan) {
    AVFormatContext* opened = nullptr;
    check(avformat_alloc_output_context2(&opened, nullptr, plan.format.c_str(), path.c_str()),
          "output format " + plan.format);
    return OutputPointer(opened);
}

void writeHeader(AVFormatContext& output, const std::string& path, const SoundPlan& plan,
                 const AVCodecContext& encoder) {
    AVStream* stream = checkFound(avformat_new_stream(&output, nullptr), "stream");
    check(avcodec_parameters_from_context(stream->codecpar, &encoder), "parameters");
    stream->time_base = encoder.time_base;
    check(avio_open(&output.pb, path.c_str(), AVIO_FLAG_WRITE), "creating " + path);
    Dictionary options(plan.muxerOptions);
    check(avformat_write_header(&output, options.get()), "header of " + path);
    options.checkAllTaken(plan.format);
}

} // namespace

bool canMake(const SoundPlan& plan) {
    return avcodec_find_encoder_by_name(plan.encoder.c_str()) != nullptr &&
           av_guess_format(plan.format.c_str(), nullptr, nullptr) != nullptr;
}

void makeSound(const std::string& path, const SoundPlan& plan) {
    OutputPointer output = beginFile(path, plan);
    FramePointer frame(checkFound(av_frame_alloc(), "frame"));
    check(SampleSource(plan).next(*frame) ? 0 : AVERROR_EOF, "first frame");
    const bool globalHeader = (output->oformat->flags & AVFMT_GLOBALHEADER) != 0;
    CodecPointer encoder = openFor(plan, *frame, globalHeader);
    av_frame_unref(frame.get());
    writeHeader(*output, path, plan, *encoder);

    SampleSource source(plan);
    source.setFrameSize(encoder->frame_size > 0 ? encoder->frame_size : 1024);
    int64_t number = 0;
    while (source.next(*frame)) {
        frame->pts = number;
        number += frame->nb_samples;
        check(avcodec_send_frame(encoder.get(), frame.get()), "sending a frame");
        passOn(*encoder, *output);
        av_frame_unref(frame.get());
    }
    check(avcodec_send_frame(encoder.get(), nullptr), "ending");
    passOn(*encoder, *output);
    check(av_write_trailer(output.get()), "trailer of " + path);
}

} // namespace tio::test
