// Makes a clip of sound for each codec and container that this FFmpeg puts together:
//   tarn_make_sounds FOLDER
// What is there already stays. Codecs whose packets tell their length get enough packets for the
// reader to go by them; the others less.

#include "support/SoundMaker.h"

#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace tio::bench {
namespace {

struct Codec {
    std::string name;
    test::SoundPlan plan; // its format is set for each container
};

constexpr double enough = 27; // more than 1000 packets
constexpr double less = 3;

// A rising tone with noise in half of the time: of little work, because it is made for each clip.
const char* const signal =
    "0.3*sin(n*(0.03+n*1e-8))+0.2*(random(0)-0.5)*lt(mod(n\\,30000)\\,15000)";

test::SoundPlan plan(const std::string& encoder, const std::string& samples, int rate,
                     const std::string& layout, double seconds, test::Options options = {}) {
    return {"", encoder, samples, rate, layout, seconds, signal, std::move(options), {}};
}

std::vector<Codec> lossyCodecs() {
    return {
        {"aac", plan("aac", "fltp", 44100, "stereo", enough, {{"aac_pns", "0"}})},
        {"aac-5.1", plan("aac", "fltp", 48000, "5.1", less, {{"aac_pns", "0"}})},
        {"aac-noise", plan("aac", "fltp", 44100, "stereo", enough)},
        {"mp3-320", plan("libmp3lame", "fltp", 44100, "stereo", enough, {{"b", "320k"}})},
        {"mp3-32", plan("libmp3lame", "fltp", 44100, "stereo", enough, {{"b", "32k"}})},
        {"mp3-8", plan("libmp3lame", "fltp", 16000, "mono", 40, {{"b", "8k"}})},
        {"mp2", plan("mp2", "s16", 48000, "stereo", less)},
        {"ac3", plan("ac3", "fltp", 48000, "stereo", less, {{"b", "640k"}})},
        {"ac3-dither", plan("ac3", "fltp", 48000, "5.1(side)", less, {{"b", "192k"}})},
        {"eac3", plan("eac3", "fltp", 48000, "stereo", less, {{"b", "192k"}})},
        {"opus", plan("libopus", "flt", 48000, "stereo", less, {{"b", "96k"}})},
        {"opus-voice",
         plan("libopus", "flt", 48000, "mono", less, {{"b", "12k"}, {"application", "voip"}})},
        {"vorbis", plan("libvorbis", "fltp", 44100, "stereo", less)},
        {"wma1", plan("wmav1", "fltp", 44100, "stereo", less)},
        {"wma2", plan("wmav2", "fltp", 44100, "stereo", less, {{"b", "32k"}})},
        {"dts", plan("dca", "s32", 48000, "stereo", less)},
        {"speex", plan("libspeex", "s16", 16000, "mono", less)},
        {"gsm", plan("libgsm", "s16", 8000, "mono", less)},
        {"amr", plan("libopencore_amrnb", "s16", 8000, "mono", less)},
        {"nellymoser", plan("nellymoser", "flt", 44100, "mono", less)},
        {"g723.1", plan("g723_1", "s16", 8000, "mono", less, {{"b", "6300"}})},
        {"sbc", plan("sbc", "s16p", 44100, "stereo", less)},
        {"aptx", plan("aptx", "s32p", 48000, "stereo", less)},
    };
}

std::vector<Codec> otherCodecs() {
    return {
        {"flac", plan("flac", "s16", 44100, "stereo", enough, {{"frame_size", "1152"}})},
        {"flac-24", plan("flac", "s32", 96000, "stereo", less)},
        {"alac", plan("alac", "s16p", 44100, "stereo", less)},
        {"wavpack", plan("wavpack", "s16p", 44100, "stereo", less)},
        {"tta", plan("tta", "s16", 44100, "stereo", less)},
        {"truehd", plan("truehd", "s16", 48000, "stereo", less)},
        {"mlp", plan("mlp", "s16", 48000, "stereo", less)},
        {"ima-wav", plan("adpcm_ima_wav", "s16p", 44100, "stereo", less)},
        {"ima-qt", plan("adpcm_ima_qt", "s16p", 44100, "stereo", less)},
        {"ms", plan("adpcm_ms", "s16", 44100, "stereo", less)},
        {"swf", plan("adpcm_swf", "s16", 44100, "stereo", less)},
        {"yamaha", plan("adpcm_yamaha", "s16", 44100, "stereo", less)},
        {"adx", plan("adpcm_adx", "s16", 44100, "stereo", less)},
        {"g722", plan("g722", "s16", 16000, "mono", less)},
        {"g726", plan("g726", "s16", 8000, "mono", less)},
        {"u8", plan("pcm_u8", "u8", 22050, "mono", less)},
        {"s16", plan("pcm_s16le", "s16", 48000, "stereo", enough)},
        {"s16be", plan("pcm_s16be", "s16", 48000, "stereo", less)},
        {"s24", plan("pcm_s24le", "s32", 48000, "stereo", less)},
        {"s32", plan("pcm_s32le", "s32", 48000, "quad", less)},
        {"f32", plan("pcm_f32le", "flt", 48000, "stereo", less)},
        {"f64", plan("pcm_f64le", "dbl", 48000, "stereo", less)},
        {"mu-law", plan("pcm_mulaw", "s16", 8000, "mono", less)},
        {"a-law", plan("pcm_alaw", "s16", 8000, "mono", less)},
    };
}

struct Container {
    std::string muxer;
    std::string extension;
    test::Options options;
};

const std::vector<Container> containers = {
    {"mp4", "mp4", {{"strict", "experimental"}}},
    {"mp4",
     "fragments.mp4",
     {{"movflags", "frag_keyframe+empty_moov"}, {"frag_duration", "500000"}}},
    {"mov", "mov", {}},
    {"matroska", "mkv", {}},
    {"webm", "webm", {}},
    {"mpegts", "ts", {}},
    {"mpegts", "latm.ts", {{"mpegts_flags", "latm"}}},
    {"mpeg", "mpg", {}},
    {"avi", "avi", {}},
    {"flv", "flv", {}},
    {"asf", "asf", {}},
    {"ogg", "ogg", {}},
    {"nut", "nut", {}},
    {"caf", "caf", {}},
    {"wav", "wav", {}},
    {"aiff", "aiff", {}},
    {"au", "au", {}},
    {"w64", "w64", {}},
    {"adts", "aac", {}},
    {"mp3", "mp3", {}},
    {"mp2", "mp2", {}},
    {"ac3", "ac3", {}},
    {"eac3", "eac3", {}},
    {"dts", "dts", {}},
    {"flac", "flac", {}},
    {"wv", "wv", {}},
    {"tta", "tta", {}},
    {"truehd", "thd", {}},
    {"mlp", "mlp", {}},
    {"amr", "amr", {}},
    {"gsm", "gsm", {}},
    {"sbc", "sbc", {}},
    {"adx", "adx", {}},
};

/// Whether they belong together. Transport streams and Ogg do not say so.
bool holds(const Container& container, AVCodecID codec) {
    const AVOutputFormat* format = av_guess_format(container.muxer.c_str(), nullptr, nullptr);
    if (format == nullptr)
        return false;
    if (container.extension == "latm.ts")
        return codec == AV_CODEC_ID_AAC;
    if (container.muxer == "mpegts")
        return codec == AV_CODEC_ID_AAC || codec == AV_CODEC_ID_MP3 || codec == AV_CODEC_ID_MP2 ||
               codec == AV_CODEC_ID_AC3 || codec == AV_CODEC_ID_EAC3 || codec == AV_CODEC_ID_DTS ||
               codec == AV_CODEC_ID_OPUS || codec == AV_CODEC_ID_TRUEHD;
    if (container.muxer == "ogg")
        return codec == AV_CODEC_ID_VORBIS || codec == AV_CODEC_ID_OPUS ||
               codec == AV_CODEC_ID_FLAC || codec == AV_CODEC_ID_SPEEX;
    return avformat_query_codec(format, codec, FF_COMPLIANCE_EXPERIMENTAL) == 1;
}

void make(const std::filesystem::path& folder, const Codec& codec, const Container& container) {
    const std::filesystem::path path = folder / (codec.name + "." + container.extension);
    const AVCodec* encoder = avcodec_find_encoder_by_name(codec.plan.encoder.c_str());
    if (encoder == nullptr || !holds(container, encoder->id) || std::filesystem::exists(path))
        return;
    test::SoundPlan plan = codec.plan;
    plan.format = container.muxer;
    plan.muxerOptions = container.options;
    try {
        test::makeSound(path, plan);
        static_cast<void>(test::oracleSound(path));
    } catch (const std::exception& error) {
        std::filesystem::remove(path);
        std::cerr << path.filename().string() << " left out: " << error.what() << "\n";
    }
}

} // namespace
} // namespace tio::bench

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: tarn_make_sounds FOLDER\n";
        return 2;
    }
    av_log_set_level(AV_LOG_QUIET);
    std::filesystem::create_directories(argv[1]);
    for (const auto& codecs : {tio::bench::lossyCodecs(), tio::bench::otherCodecs()})
        for (const auto& codec : codecs)
            for (const auto& container : tio::bench::containers)
                tio::bench::make(argv[1], codec, container);
}
