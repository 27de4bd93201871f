#include "support/ClipTable.h"

#include "support/ClipMaker.h"
#include "support/Mp4Edits.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace tio::test {

namespace {

using Make = std::function<void(const std::string&)>;
using Change = std::function<void(ClipPlan&)>;

/// The default plan with a change.
Make clip(Change change) {
    return [change = std::move(change)](const std::string& path) {
        ClipPlan plan;
        change(plan);
        makeClip(path, plan);
    };
}

/// A clip without B-frames in a format of its own.
Make clip(const std::string& format, const std::string& encoder, const std::string& pixelFormat,
          int width, int height) {
    return clip([=](ClipPlan& plan) {
        plan.format = format;
        plan.encoder = encoder;
        plan.pixelFormat = pixelFormat;
        plan.width = width;
        plan.height = height;
        plan.maxBFrames = 0;
    });
}

Make turned(const std::string& format, int degrees) {
    return clip([=](ClipPlan& plan) {
        plan.format = format;
        plan.width = 100; // 4 modulo 16, and 2 when turned by a quarter: rows end in mid vector
        plan.height = 50;
        plan.rotation = degrees;
    });
}

/// Shows frames 5 to 14 of 25: what comes before is needed for decoding, what comes after is not.
void makeCut(const std::string& path) {
    makeClip(path, {});
    cutByEditList(path, 5 / 25.0, 10 / 25.0);
}

/// Pictures in the order of the file, each with the pts that `ptsOf` gives for its number. The
/// decoding times lag two ticks at most, which leaves room for a pts to go back.
void makeWithPts(const std::string& path, const std::function<int64_t(int64_t)>& ptsOf) {
    ClipPlan plan;
    plan.maxBFrames = 0;
    Track track = encodeVideo(plan);
    for (std::size_t n = 0; n < track.packets.size(); ++n) {
        track.packets[n].dts = static_cast<int64_t>(n);
        track.packets[n].pts = ptsOf(static_cast<int64_t>(n));
    }
    writePackets(path, "mp4", {track}, {{"use_editlist", "0"}});
}

void makeWithEmptyPacket(const std::string& path) {
    Track track = encodeVideo({});
    track.packets[5].data.clear(); // a reference of nothing: the rest still decodes
    writePackets(path, "nut", {track});
}

/// Larger pictures follow smaller ones, as when a broadcaster switches its source.
void makeWithChangingSize(const std::string& path) {
    ClipPlan plan;
    plan.format = "mpegts"; // whose packets carry the codec's headers with them
    plan.maxBFrames = 0;
    plan.frameCount = 12;
    Track track = encodeVideo(plan);
    plan.width = 118;
    plan.height = 70;
    for (RawPacket packet : encodeVideo(plan).packets) {
        packet.pts += 12;
        packet.dts += 12;
        track.packets.push_back(std::move(packet));
    }
    writePackets(path, "mpegts", {track});
}

std::vector<MadeClip> h264InMp4() {
    const Access every = Access::EveryOrder;
    return {
        {"BFrames", "mp4", every, clip([](ClipPlan&) {})},
        {"NoBFrames", "mp4", every, clip([](ClipPlan& plan) { plan.maxBFrames = 0; })},
        {"DeepBFrames", "mp4", every, clip([](ClipPlan& plan) {
             plan.maxBFrames = 7;
             plan.frameCount = 60;
             plan.gopSize = 30;
             plan.encoderOptions = {{"b-pyramid", "normal"}, {"refs", "4"}};
         })},
        {"LongGop", "mp4", every, clip([](ClipPlan& plan) {
             plan.gopSize = 250;
             plan.frameCount = 60;
         })},
        {"OnlyKeyFrames", "mp4", every, clip([](ClipPlan& plan) { plan.gopSize = 1; })},
        {"OpenGop", "mp4", Access::Forward, clip([](ClipPlan& plan) { plan.openGop = true; })},
        {"OneFrame", "mp4", every, clip([](ClipPlan& plan) { plan.frameCount = 1; })},
        {"WithAudio", "mp4", every, clip([](ClipPlan& plan) { plan.audio = true; })},
        {"StartsLate", "mp4", every, clip([](ClipPlan& plan) { plan.useEditList = false; })},
        {"CutByEditList", "mp4", every, makeCut},
        {"VariableFrameRate", "mp4", every, clip([](ClipPlan& plan) {
             plan.pts = {0, 1, 2, 10, 11, 12, 40, 41, 100, 150, 151, 152, 153, 154, 300, 301};
         })},
        {"NtscRate", "mp4", every, clip([](ClipPlan& plan) {
             plan.timeBase = {1001, 30000};
             plan.frameCount = 40;
         })},
        {"Fragmented", "mp4", every, clip([](ClipPlan& plan) {
             plan.muxerOptions = {{"movflags", "frag_keyframe+empty_moov+delay_moov"}};
         })},
        {"RepeatedPts", "mp4", every,
         [](const std::string& path) {
             makeWithPts(path, [](int64_t n) { return n == 5 ? 6 : n + 2; });
         }},
        {"PtsGoesBack", "mp4", Access::Forward,
         [](const std::string& path) {
             makeWithPts(path, [](int64_t n) { return n == 9 || n == 10 ? 10 : n + 2; });
         }},
    };
}

std::vector<MadeClip> turnedClips() {
    return {
        {"Turned90", "mp4", Access::EveryOrder, turned("mp4", 90)},
        {"Turned180", "mp4", Access::EveryOrder, turned("mp4", 180)},
        {"Turned270", "mp4", Access::EveryOrder, turned("mp4", 270)},
        {"TurnedMov", "mov", Access::EveryOrder, turned("mov", 90)},
    };
}

/// Sizes and pixel formats at which converters stumble.
std::vector<MadeClip> oddPictures() {
    const Access every = Access::EveryOrder;
    return {
        {"Odd444", "mp4", every, clip("mp4", "libx264", "yuv444p", 33, 31)},
        {"Odd420", "mp4", every, clip("mp4", "mpeg4", "yuv420p", 33, 31)},
        {"OddLossless", "mkv", every, clip("matroska", "ffv1", "yuv420p", 35, 17)},
        {"OddFullRange", "avi", Access::Forward, clip("avi", "mjpeg", "yuvj420p", 33, 31)},
        {"Width854", "mp4", every, clip("mp4", "libx264", "yuv420p", 854, 48)},
        {"Width66", "mp4", every, clip("mp4", "libx264", "yuv422p", 66, 34)},
        {"TenBit", "mp4", every, clip("mp4", "libx264", "yuv420p10le", 70, 50)},
        {"TenBit422", "mkv", every, clip("matroska", "libx264", "yuv422p10le", 72, 50)},
        {"StoredAsNv12", "nut", Access::Forward, clip("nut", "rawvideo", "nv12", 54, 30)},
        {"StoredAsRgb", "nut", Access::Forward, clip("nut", "rawvideo", "rgb24", 35, 17)},
        {"StoredAsGrey", "mkv", every, clip("matroska", "ffv1", "gray", 37, 19)},
        {"StoredAsPlanarRgb", "mp4", every, clip("mp4", "libx264rgb", "rgb24", 36, 20)},
    };
}

std::vector<MadeClip> otherContainers() {
    const Access forward = Access::Forward;
    const auto withAudio = [](const char* format) {
        return clip([format](ClipPlan& plan) {
            plan.format = format;
            plan.audio = true;
        });
    };
    return {
        {"Matroska", "mkv", Access::EveryOrder, withAudio("matroska")},
        {"Vp9InWebm", "webm", Access::EveryOrder, clip("webm", "libvpx-vp9", "yuv420p", 70, 50)},
        {"MpegTs", "ts", forward, withAudio("mpegts")},
        {"Mpeg2InTs", "ts", forward, clip([](ClipPlan& plan) {
             plan.format = "mpegts";
             plan.encoder = "mpeg2video";
         })},
        {"Flv", "flv", forward, withAudio("flv")},
        {"Mpeg4InAvi", "avi", forward, clip("avi", "mpeg4", "yuv420p", 96, 64)},
        {"AviWithoutSomePts", "avi", forward, clip([](ClipPlan& plan) {
             plan.format = "avi";
             plan.encoder = "mpeg4";
         })},
        {"SizeChanges", "ts", forward, makeWithChangingSize},
        {"EmptyPacket", "nut", forward, makeWithEmptyPacket},
    };
}

} // namespace

const std::vector<MadeClip>& madeClips() {
    static const std::vector<MadeClip> clips = [] {
        std::vector<MadeClip> all;
        for (const auto& part : {h264InMp4(), turnedClips(), oddPictures(), otherContainers()})
            all.insert(all.end(), part.begin(), part.end());
        return all;
    }();
    return clips;
}

const std::vector<RealClip>& realClips() {
    const Access forward = Access::Forward;
    const Access every = Access::EveryOrder;
    static const std::vector<RealClip> clips = {
        {"A4.mp4", every},                // one group of 90 pictures
        {"carphone_pristine.mp4", every}, // B-frames, one group of 120
        {"bbb_800x640_768kbps_30fps_avc_pyramid_3b.mp4", forward},
        {"small.mp4", forward},
        {"h264_10bits.mp4", every},
        {"bt709_full_range.mp4", forward},          // yuvj420p
        {"trim_optimization_failure.mp4", forward}, // width 518: 6 modulo 16
        {"dash-video-with-dash-.mp4", forward},     // 1x1 pixel
        {"video_colr_nclx_rgb.mp4", every},         // 2x2 pixels, stored as planar RGB
        {"unordered.mov", every},
        {"fragmented_captions.mp4", every},
        {"sample_without_stss.mp4", forward},                     // every packet flagged as key
        {"iibbibb_editlist_videoonly.mp4", forward},              // edit list, 4:4:4
        {"sample_edit_list_only_preroll_sync_sample.mp4", every}, // edit list: one packet discarded
        {"sample_sef_slow_motion.mp4", every},                    // likewise
        {"sample_edit_list.mp4", forward},          // edit list, 10-bit HEVC, turned 90
        {"video_90.mov", every},                    // turned 90
        {"video_rotation_90.mp4", every},           // turned 90, one frame
        {"sample_rotate_and_reflect.mp4", forward}, // turned 90 and mirrored
        {"internal_emulator_transformer_output_180_rotated.mp4", forward}, // turned 180
        {"mv_with_2_top_shots.mp4", forward}, // two video streams, turned 270
        {"h265_bframes.mp4", forward},        // width 854
        {"h265_10bits.mp4", every},
        {"bbb_176x144_128kbps_15fps_h263.3gp", every},
        {"MPEG4.mp4", forward},                  // width 190
        {"sample_av1.mkv", forward},             // AV1, 10-bit
        {"bear-vp9-odd-dimensions.webm", every}, // 161x121
        {"webm.webm", every},                    // VP8, one frame
        {"sample_with_chapters.mkv", forward},   // 4:4:4
        {"9bitwhite.mkv", forward},              // 9 bits
        {"bipbop0.ts", forward},
        {"sample_h264.ts", forward}, // width 854
        {"sample_h265.ts", forward},
        {"sample_h262_mpeg_audio.ts", forward}, // MPEG-2
        {"sample_h263.ts", forward},            // MPEG-4 part 2
        {"videoDiffPtsDts.ts", forward},
        {"sample.avi", forward},          // MPEG-4 part 2
        {"fixtures_sample.avi", forward}, // Cinepak: decodes to RGB
        {"mjpeg.avi", forward},           // 5x3 pixels
        {"flash.flv", forward},
        {"A4.ogv", forward},               // Theora
        {"black29x19offset.ogv", forward}, // cropped: 57x29 pictures in a stream of 29x29
        {"vp8.ivf", forward},
        {"av1.ivf", forward},
        {"launch.mpg", forward}, // MPEG-1, a third without pts
    };
    return clips;
}

} // namespace tio::test
