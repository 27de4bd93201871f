#pragma once

#include "support/SoundMaker.h"

#include <string>
#include <vector>

namespace tio::test {

/// A clip of a table.
struct SoundClip {
    std::string name;
    SoundPlan plan;
};

/// One for each codec and kind of container that matters to reading sound by number.
[[nodiscard]] inline std::vector<SoundClip> soundClips() {
    std::vector<SoundClip> clips;
    const auto add = [&](const char* name, SoundPlan plan) {
        clips.push_back({name, std::move(plan)});
    };
    const Options noNoise = {{"aac_pns", "0"}};
    add("aac.mp4", {"mp4", "aac", "fltp", 44100, "stereo", 2, {}, noNoise, {}});
    add("aac-no-edit-list.mp4",
        {"mp4", "aac", "fltp", 44100, "stereo", 2, {}, noNoise, {{"use_editlist", "0"}}});
    add("aac-fragments.mp4",
        {"mp4",
         "aac",
         "fltp",
         48000,
         "mono",
         2,
         {},
         noNoise,
         {{"movflags", "frag_keyframe+empty_moov"}, {"frag_duration", "300000"}}});
    add("aac-5.1.mov", {"mov", "aac", "fltp", 48000, "5.1", 1, {}, noNoise, {}});
    add("aac-noise.mp4", {"mp4", "aac", "fltp", 44100, "stereo", 2, {}, {}, {}});
    add("aac.ts", {"mpegts", "aac", "fltp", 48000, "stereo", 2, {}, noNoise, {}});
    add("aac.aac", {"adts", "aac", "fltp", 44100, "stereo", 2, {}, noNoise, {}});
    add("aac.mkv", {"matroska", "aac", "fltp", 44100, "stereo", 2, {}, noNoise, {}});
    add("aac.flv", {"flv", "aac", "fltp", 44100, "stereo", 2, {}, noNoise, {}});
    add("aac.latm.ts",
        {"mpegts", "aac", "fltp", 48000, "stereo", 1, {}, noNoise, {{"mpegts_flags", "latm"}}});
    const Options slow = {{"b", "32k"}};
    add("mp3-320.mp3", {"mp3", "libmp3lame", "fltp", 44100, "stereo", 2, {}, {{"b", "320k"}}, {}});
    add("mp3-32.mp3", {"mp3", "libmp3lame", "fltp", 44100, "stereo", 2, {}, slow, {}});
    add("mp3-8-low.mp3", {"mp3", "libmp3lame", "fltp", 16000, "mono", 4, {}, {{"b", "8k"}}, {}});
    add("mp3-variable.mp3",
        {"mp3", "libmp3lame", "fltp", 44100, "stereo", 2, {}, {{"compression_level", "5"}}, {}});
    add("mp3.mp4", {"mp4", "libmp3lame", "fltp", 44100, "stereo", 2, {}, {}, {}});
    add("mp3.avi", {"avi", "libmp3lame", "fltp", 44100, "stereo", 2, {}, {}, {}});
    add("mp2.mp2", {"mp2", "mp2", "s16", 44100, "stereo", 2, {}, {}, {}});
    add("mp2.mpg", {"mpeg", "mp2", "s16", 48000, "stereo", 2, {}, {}, {}});
    add("ac3.ac3", {"ac3", "ac3", "fltp", 48000, "stereo", 2, {}, {{"b", "640k"}}, {}});
    add("ac3-noise.ts", {"mpegts", "ac3", "fltp", 48000, "5.1(side)", 1, {}, {{"b", "192k"}}, {}});
    add("eac3.mp4", {"mp4", "eac3", "fltp", 48000, "stereo", 2, {}, {{"b", "640k"}}, {}});
    add("opus.opus", {"ogg", "libopus", "flt", 48000, "stereo", 3, {}, {{"b", "96k"}}, {}});
    add("opus-voice.mkv", {"matroska",
                           "libopus",
                           "flt",
                           48000,
                           "mono",
                           3,
                           {},
                           {{"b", "12k"}, {"application", "voip"}},
                           {}});
    add("opus-60ms.webm",
        {"webm", "libopus", "flt", 48000, "stereo", 3, {}, {{"frame_duration", "60"}}, {}});
    add("opus.mp4", {"mp4", "libopus", "flt", 48000, "stereo", 3, {}, {}, {}});
    add("vorbis.ogg", {"ogg", "libvorbis", "fltp", 44100, "stereo", 2, {}, {}, {}});
    add("vorbis.webm", {"webm", "libvorbis", "fltp", 48000, "stereo", 2, {}, {}, {}});
    add("wma1.asf", {"asf", "wmav1", "fltp", 44100, "stereo", 2, {}, {}, {}});
    add("wma2.asf", {"asf", "wmav2", "fltp", 44100, "stereo", 2, {}, {}, {}});
    add("wma2-slow.asf", {"asf", "wmav2", "fltp", 44100, "stereo", 2, {}, slow, {}});
    add("alac.mp4", {"ipod", "alac", "s16p", 44100, "stereo", 2, {}, {}, {}});
    add("flac.flac", {"flac", "flac", "s16", 44100, "stereo", 2, {}, {}, {}});
    add("flac.mkv", {"matroska", "flac", "s32", 96000, "stereo", 1, {}, {}, {}});
    add("flac.ogg", {"ogg", "flac", "s16", 44100, "stereo", 2, {}, {}, {}});
    add("wavpack.wv", {"wv", "wavpack", "s16p", 44100, "stereo", 2, {}, {}, {}});
    add("tta.tta", {"tta", "tta", "s16", 44100, "stereo", 3, {}, {}, {}});
    add("truehd.mkv", {"matroska", "truehd", "s16", 48000, "stereo", 1, {}, {}, {}});
    add("dts.dts", {"dts", "dca", "s32", 48000, "stereo", 2, {}, {}, {}});
    add("ima.wav", {"wav", "adpcm_ima_wav", "s16p", 44100, "stereo", 2, {}, {}, {}});
    add("ima-qt.mov", {"mov", "adpcm_ima_qt", "s16p", 44100, "stereo", 1, {}, {}, {}});
    add("ms.wav", {"wav", "adpcm_ms", "s16", 44100, "stereo", 2, {}, {}, {}});
    add("yamaha.wav", {"wav", "adpcm_yamaha", "s16", 44100, "stereo", 2, {}, {}, {}});
    add("g722.wav", {"wav", "g722", "s16", 16000, "mono", 2, {}, {}, {}});
    add("speex.ogg", {"ogg", "libspeex", "s16", 16000, "mono", 2, {}, {}, {}});
    add("u8.wav", {"wav", "pcm_u8", "u8", 22050, "mono", 1, {}, {}, {}});
    add("s16.wav", {"wav", "pcm_s16le", "s16", 48000, "stereo", 1, {}, {}, {}});
    add("s24.mov", {"mov", "pcm_s24le", "s32", 48000, "stereo", 1, {}, {}, {}});
    add("s32.wav", {"wav", "pcm_s32le", "s32", 48000, "quad", 1, {}, {}, {}});
    add("s16be.aiff", {"aiff", "pcm_s16be", "s16", 48000, "stereo", 1, {}, {}, {}});
    add("f32.wav", {"wav", "pcm_f32le", "flt", 48000, "stereo", 1, {}, {}, {}});
    add("f64.wav", {"wav", "pcm_f64le", "dbl", 48000, "stereo", 1, {}, {}, {}});
    add("s16.mkv", {"matroska", "pcm_s16le", "s16", 44100, "stereo", 1, {}, {}, {}});
    add("s16.avi", {"avi", "pcm_s16le", "s16", 44100, "stereo", 1, {}, {}, {}});
    add("mulaw.au", {"au", "pcm_mulaw", "s16", 8000, "mono", 2, {}, {}, {}});
    return clips;
}

} // namespace tio::test
