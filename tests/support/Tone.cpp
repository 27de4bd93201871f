#include "support/Encoding.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavutil/opt.h>
}

#include <cmath>

namespace tio::test {

namespace {

constexpr int sampleRate = 48000;
constexpr int samplesPerFrame = 1024; // what the AAC encoder takes at a time

/// A source of tone frames. A filter graph makes them because it fills in the channel fields,
/// whose names differ between FFmpeg releases.
GraphPointer makeToneSource() {
    GraphPointer graph(checkFound(avfilter_graph_alloc(), "filter graph"));
    const std::string chain = "sine=frequency=440:sample_rate=" + std::to_string(sampleRate) +
                              ":samples_per_frame=" + std::to_string(samplesPerFrame) +
                              ",aformat=sample_fmts=fltp:channel_layouts=mono,abuffersink";
    check(avfilter_graph_parse_ptr(graph.get(), chain.c_str(), nullptr, nullptr, nullptr),
          "tone chain");
    check(avfilter_graph_config(graph.get(), nullptr), "tone graph");
    return graph;
}

AVFilterContext* sinkOf(AVFilterGraph& graph) {
    for (unsigned i = 0; i < graph.nb_filters; ++i) {
        if (std::string(graph.filters[i]->filter->name) == "abuffersink")
            return graph.filters[i];
    }
    throw std::runtime_error("test media: tone graph without a sink");
}

/// Sets one mono channel by whichever option this FFmpeg release has for it.
void setMono(AVCodecContext& encoder) {
    if (av_opt_set(&encoder, "ch_layout", "mono", 0) >= 0)
        return;
    check(av_opt_set_int(&encoder, "channel_layout", 4, 0), "mono layout"); // front centre
    check(av_opt_set_int(&encoder, "ac", 1, 0), "one channel");
}

} // namespace

Track encodeTone(double seconds, bool globalHeader) {
    const AVCodec* codec = checkFound(avcodec_find_encoder_by_name("aac"), "AAC encoder");
    CodecPointer encoder(checkFound(avcodec_alloc_context3(codec), "encoder"));
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder->sample_rate = sampleRate;
    encoder->time_base = {1, sampleRate};
    encoder->bit_rate = 64000;
    if (globalHeader)
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    setMono(*encoder);
    openEncoder(*encoder, {});

    Track track = trackOf(*encoder);
    GraphPointer source = makeToneSource();
    FramePointer frame(checkFound(av_frame_alloc(), "frame"));
    const auto frames = static_cast<int>(std::ceil(seconds * sampleRate / samplesPerFrame));
    for (int i = 0; i < frames; ++i) {
        check(av_buffersink_get_frame(sinkOf(*source), frame.get()), "tone frame");
        encodeFrame(*encoder, frame.get(), track.packets);
        av_frame_unref(frame.get());
    }
    encodeFrame(*encoder, nullptr, track.packets);
    return track;
}

} // namespace tio::test
