#include "support/ReaderClips.h"

#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Ffmpeg.h"

extern "C" {
#include <libavcodec/bsf.h>
#include <libavutil/opt.h>
}

#include <memory>
#include <utility>

namespace tio::test {

namespace {

using Make = std::function<void(const std::string&)>;

Make clip(const std::function<void(ClipPlan&)>& change) {
    return [change](const std::string& path) {
        ClipPlan plan;
        plan.frameCount = 40;
        change(plan);
        makeClip(path, plan);
    };
}

Make inFormat(const std::string& format, const std::string& encoder = "libx264") {
    return clip([=](ClipPlan& plan) {
        plan.format = format;
        plan.encoder = encoder;
    });
}

Make openGroups(const std::string& format) {
    return clip([=](ClipPlan& plan) {
        plan.format = format;
        plan.openGop = true;
    });
}

/// A stream as it is found when a recording begins in the middle of a group.
void makeWithoutFirstKey(const std::string& path) {
    ClipPlan plan;
    plan.frameCount = 40;
    Track track = encodeVideo(plan);
    track.packets.erase(track.packets.begin(), track.packets.begin() + 5);
    writePackets(path, "mpegts", {track});
}

/// The clock of a transport stream has 33 bits of 1/90000 s, and starts again at zero in mid-clip.
void makeAcrossClockWrap(const std::string& path) {
    ClipPlan plan;
    plan.format = "mpegts";
    plan.timeBase = {1, 90000};
    for (int64_t n = 0; n < 40; ++n)
        plan.pts.push_back((int64_t{1} << 33) + (n - 20) * 3600);
    makeClip(path, plan);
}

/// Every packet is called a key packet, and the decoder believes it.
void makeWithLyingKeys(const std::string& path) {
    ClipPlan plan;
    plan.encoder = "mpeg4";
    plan.maxBFrames = 0;
    plan.frameCount = 40;
    plan.gopSize = 20;
    Track track = encodeVideo(plan);
    for (RawPacket& packet : track.packets)
        packet.key = true;
    writePackets(path, "matroska", {track});
}

/// In AVI a palette goes before the first picture that it is for, and stays.
void makePaletted(const std::string& path) {
    constexpr int width = 32;
    constexpr int height = 16;
    constexpr int colours = 256;
    Track track = bareVideoTrack(AV_CODEC_ID_RAWVIDEO, width, height, {1, 25});
    track.parameters->format = AV_PIX_FMT_PAL8;
    track.parameters->bits_per_coded_sample = 8;
    for (int number = 0; number < 12; ++number) {
        RawPacket packet;
        packet.pts = packet.dts = number;
        for (int pixel = 0; pixel < width * height; ++pixel)
            packet.data.push_back(static_cast<uint8_t>(pixel * 3 + number * 7));
        for (int colour = 0; colour < colours; ++colour)
            for (const int part : {colour, 255 - colour, colour * 5, 255})
                packet.data.push_back(static_cast<uint8_t>(part));
        track.packets.push_back(packet);
    }
    writePackets(path, "avi", {track});
}

/// Six columns are cut off at the left, which a decoder does not do: such a row would begin at an
/// address that does not suit the processor. What comes out is larger than the clip says.
void makeCroppedLeft(const std::string& path) {
    ClipPlan plan;
    plan.frameCount = 40;
    Track track = encodeVideo(plan);
    AVBSFContext* made = nullptr;
    check(av_bsf_alloc(checkFound(av_bsf_get_by_name("h264_metadata"), "filter"), &made), "filter");
    const auto release = [](AVBSFContext* filter) { av_bsf_free(&filter); };
    const std::unique_ptr<AVBSFContext, decltype(release)> filter(made, release);
    check(avcodec_parameters_copy(filter->par_in, track.parameters.get()), "parameters");
    check(av_opt_set_int(filter->priv_data, "crop_left", 6, 0), "crop_left");
    check(av_bsf_init(filter.get()), "filter");
    check(avcodec_parameters_copy(track.parameters.get(), filter->par_out), "parameters");
    writePackets(path, "mp4", {track});
}

void makeDamaged(const std::string& path) {
    ClipPlan plan;
    plan.frameCount = 40;
    plan.gopSize = 10;
    plan.maxBFrames = 0;
    makeClip(path, plan);
    damagePacket(path, 14);
}

} // namespace

const std::vector<MadeClip>& readerClips() {
    const Access every = Access::EveryOrder;
    static const std::vector<MadeClip> clips = {
        {"RawH264", "h264", every, inFormat("h264")},
        {"RawH264OpenGop", "h264", every, openGroups("h264")},
        {"RawMpeg2", "m2v", every, inFormat("mpeg2video", "mpeg2video")},
        {"ProgramStream", "mpg", every, inFormat("mpeg", "mpeg2video")},
        {"ProgramStreamH264", "mpg", every, inFormat("vob")},
        {"OpenGopInMatroska", "mkv", every, openGroups("matroska")},
        {"OpenGopInTs", "ts", every, openGroups("mpegts")},
        {"OpenGopInFragments", "mp4", every, clip([](ClipPlan& plan) {
             plan.openGop = true;
             plan.muxerOptions = {{"movflags", "frag_keyframe+empty_moov+delay_moov"}};
         })},
        {"H264InAvi", "avi", every, inFormat("avi")},
        {"Pyramid", "mp4", every, clip([](ClipPlan& plan) {
             plan.maxBFrames = 7;
             plan.encoderOptions = {{"b-pyramid", "normal"}, {"refs", "4"}};
         })},
        {"IntraRefresh", "mp4", every, clip([](ClipPlan& plan) {
             plan.maxBFrames = 0;
             plan.encoderOptions = {{"intra-refresh", "1"}};
         })},
        {"WithoutFirstKey", "ts", every, makeWithoutFirstKey},
        {"AcrossClockWrap", "ts", every, makeAcrossClockWrap},
        {"LyingKeys", "mkv", every, makeWithLyingKeys},
        {"PaletteComesOnce", "avi", every, makePaletted},
        {"CroppedLeft", "mp4", every, makeCroppedLeft},
        {"DamagedInTheMiddle", "mp4", every, makeDamaged},
    };
    return clips;
}

const std::vector<std::string>& readerRealClips() {
    static const std::vector<std::string> clips = {
        "h265_bframes.mp4",               // HEVC
        "iibbibb_editlist_videoonly.mp4", // key pictures that come out only from an earlier one
        "sample_edit_list_only_preroll_sync_sample.mp4",
        "sample_without_stss.mp4", // every packet flagged as key
        "bipbop0.ts",
        "sample_h265.ts",        // HEVC in MPEG-TS: seeks by place come too late
        "launch.mpg",            // MPEG-1, a third without times
        "bear_mpeg4asp_mp3.avi", // no times at all
        "CVFI1_SVA_C.264",       // two fields, two packets, one picture
        "4pics.264",             // four pictures
        "hevc.265",              // raw HEVC
        "A4.ogv",                // Theora
        "black29x19offset.ogv",  // Theora, whose pictures are larger than it says
        "vp8.ivf",               // VP8
        "sample_av1.mp4",        // AV1
        "bbb_642x642_768kbps_30fps_vp9.webm",
        "webm.webm", // one picture
        "splitvideo01.ogg",
    };
    return clips;
}

} // namespace tio::test
