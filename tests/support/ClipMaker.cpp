#include "support/ClipMaker.h"

#include "support/Encoding.h"
#include "support/Mp4Edits.h"
#include "support/Picture.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace tio::test {

namespace {

bool isMp4Family(const std::string& format) {
    return format == "mp4" || format == "mov";
}

bool wantsGlobalHeader(const std::string& format) {
    const auto* muxer = checkFound(av_guess_format(format.c_str(), nullptr, nullptr), format);
    return (muxer->flags & AVFMT_GLOBALHEADER) != 0;
}

/// What makes each encoder obey the plan: groups of exactly the planned length and the planned
/// number of B-frames, instead of what the encoder finds best for the pictures.
Options defaultsFor(const ClipPlan& plan) {
    if (plan.encoder == "libx264")
        return {
            {"preset", "veryfast"}, {"crf", "18"},
            {"b_strategy", "0"},    {"sc_threshold", "0"},
            {"keyint_min", "1"},    {"x264-params", plan.openGop ? "open-gop=1" : "open-gop=0"}};
    if (plan.encoder.rfind("mpeg", 0) == 0)
        return {{"sc_threshold", "1000000000"}}; // needed for closed groups of pictures
    return {};
}

Options encoderOptionsOf(const ClipPlan& plan) {
    Options options = plan.encoderOptions;
    const Options defaults = defaultsFor(plan);
    options.insert(defaults.begin(), defaults.end()); // keeps what the plan says itself
    return options;
}

void setPictureTypes(AVCodecContext& encoder, const ClipPlan& plan) {
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(encoder.codec_id);
    if (descriptor && (descriptor->props & AV_CODEC_PROP_INTRA_ONLY))
        return;
    encoder.gop_size = plan.gopSize;
    encoder.max_b_frames = plan.maxBFrames;
    if (!plan.openGop)
        encoder.flags |= AV_CODEC_FLAG_CLOSED_GOP;
}

CodecPointer makeVideoEncoder(const ClipPlan& plan) {
    const AVCodec* codec =
        checkFound(avcodec_find_encoder_by_name(plan.encoder.c_str()), "encoder " + plan.encoder);
    CodecPointer encoder(checkFound(avcodec_alloc_context3(codec), "encoder"));
    encoder->width = plan.width;
    encoder->height = plan.height;
    encoder->pix_fmt = av_get_pix_fmt(plan.pixelFormat.c_str());
    encoder->time_base = plan.timeBase;
    if (plan.pts.empty())
        encoder->framerate =
            av_inv_q(av_mul_q(plan.timeBase, {static_cast<int>(plan.distance), 1}));
    setPictureTypes(*encoder, plan);
    if (wantsGlobalHeader(plan.format))
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (plan.encoder.rfind("lib", 0) != 0) { // FFmpeg's own encoders take a quantiser, not a crf
        encoder->flags |= AV_CODEC_FLAG_QSCALE;
        encoder->global_quality = 3 * FF_QP2LAMBDA;
    }
    openEncoder(*encoder, encoderOptionsOf(plan));
    return encoder;
}

FramePointer makeFrame(const ClipPlan& plan) {
    FramePointer frame(checkFound(av_frame_alloc(), "frame"));
    frame->format = av_get_pix_fmt(plan.pixelFormat.c_str());
    frame->width = plan.width;
    frame->height = plan.height;
    check(av_frame_get_buffer(frame.get(), 0), "picture of " + plan.pixelFormat);
    return frame;
}

/// Ticks until the next frame in order of presentation; the last frame lasts as long as the one
/// before it.
int64_t durationAt(const std::vector<int64_t>& pts, int64_t time) {
    if (pts.size() < 2)
        return 1;
    const auto next = std::upper_bound(pts.begin(), pts.end() - 1, time);
    return *next - *std::prev(next);
}

} // namespace

std::vector<int64_t> plannedPts(const ClipPlan& plan) {
    if (!plan.pts.empty())
        return plan.pts;
    std::vector<int64_t> pts(static_cast<std::size_t>(plan.frameCount));
    for (std::size_t n = 0; n < pts.size(); ++n)
        pts[n] = static_cast<int64_t>(n) * plan.distance;
    return pts;
}

Track encodeVideo(const ClipPlan& plan) {
    CodecPointer encoder = makeVideoEncoder(plan);
    Track track = trackOf(*encoder);
    track.metadata = plan.metadata;
    const std::vector<int64_t> pts = plannedPts(plan);
    for (std::size_t n = 0; n < pts.size(); ++n) {
        FramePointer frame = makeFrame(plan); // a fresh one: the encoder keeps some for a while
        drawPicture(*frame, static_cast<int>(n));
        frame->pts = pts[n];
        encodeFrame(*encoder, frame.get(), track.packets);
    }
    encodeFrame(*encoder, nullptr, track.packets);
    for (RawPacket& packet : track.packets)
        packet.duration = durationAt(pts, packet.pts);
    return track;
}

void makeClip(const std::string& path, const ClipPlan& plan) {
    std::vector<Track> tracks;
    tracks.push_back(encodeVideo(plan));
    if (plan.audio) {
        const std::vector<int64_t> pts = plannedPts(plan);
        const auto ticks = static_cast<double>(pts.back() + durationAt(pts, pts.back()));
        tracks.push_back(encodeTone(ticks * av_q2d(plan.timeBase), wantsGlobalHeader(plan.format)));
    }
    Options options = plan.muxerOptions;
    if (isMp4Family(plan.format))
        options.insert({"use_editlist", plan.useEditList ? "1" : "0"});
    writePackets(path, plan.format, tracks, options);
    if (plan.rotation != 0)
        setRotation(path, plan.rotation);
}

} // namespace tio::test
