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

[[nodiscard]] inline std::vector<SoundClip> aacClips() {
    const Options noNoise = {{"aac_pns", "0"}};
    return {
        {"aac.mp4", {"mp4", "aac", "fltp", 44100, "stereo", 2, {}, noNoise, {}}},
        {"aac-no-edit-list.mp4",
         {"mp4", "aac", "fltp", 44100, "stereo", 2, {}, noNoise, {{"use_editlist", "0"}}}},
        {"aac-fragments.mp4",
         {"mp4",
          "aac",
          "fltp",
          48000,
          "mono",
          2,
          {},
          noNoise,
          {{"movflags", "frag_keyframe+empty_moov"}, {"frag_duration", "300000"}}}},
        {"aac-5.1.mov", {"mov", "aac", "fltp", 48000, "5.1", 1, {}, noNoise, {}}},
        {"aac-noise.mp4", {"mp4", "aac", "fltp", 44100, "stereo", 2, {}, {}, {}}},
        {"aac.ts", {"mpegts", "aac", "fltp", 48000, "stereo", 2, {}, noNoise, {}}},
        {"aac.aac", {"adts", "aac", "fltp", 44100, "stereo", 2, {}, noNoise, {}}},
        {"aac.mkv", {"matroska", "aac", "fltp", 44100, "stereo", 2, {}, noNoise, {}}},
        {"aac.flv", {"flv", "aac", "fltp", 44100, "stereo", 2, {}, noNoise, {}}},
        {"aac.latm.ts",
         {"mpegts", "aac", "fltp", 48000, "stereo", 1, {}, noNoise, {{"mpegts_flags", "latm"}}}}};
}

[[nodiscard]] inline std::vector<SoundClip> otherLossyClips() {
    const Options slow = {{"b", "32k"}};
    return {
        {"mp3-320.mp3", {"mp3", "libmp3lame", "fltp", 44100, "stereo", 2, {}, {{"b", "320k"}}, {}}},
        {"mp3-32.mp3", {"mp3", "libmp3lame", "fltp", 44100, "stereo", 2, {}, slow, {}}},
        {"mp3-8-low.mp3", {"mp3", "libmp3lame", "fltp", 16000, "mono", 4, {}, {{"b", "8k"}}, {}}},
        {"mp3-variable.mp3",
         {"mp3", "libmp3lame", "fltp", 44100, "stereo", 2, {}, {{"compression_level", "5"}}, {}}},
        {"mp3.mp4", {"mp4", "libmp3lame", "fltp", 44100, "stereo", 2, {}, {}, {}}},
        {"mp3.avi", {"avi", "libmp3lame", "fltp", 44100, "stereo", 2, {}, {}, {}}},
        {"mp2.mp2", {"mp2", "mp2", "s16", 44100, "stereo", 2, {}, {}, {}}},
        {"mp2.mpg", {"mpeg", "mp2", "s16", 48000, "stereo", 2, {}, {}, {}}},
        {"ac3.ac3", {"ac3", "ac3", "fltp", 48000, "stereo", 2, {}, {{"b", "640k"}}, {}}},
        {"ac3-noise.ts", {"mpegts", "ac3", "fltp", 48000, "5.1(side)", 1, {}, {{"b", "192k"}}, {}}},
        {"eac3.mp4", {"mp4", "eac3", "fltp", 48000, "stereo", 2, {}, {{"b", "640k"}}, {}}},
        {"opus.opus", {"ogg", "libopus", "flt", 48000, "stereo", 3, {}, {{"b", "96k"}}, {}}},
        {"opus-voice.mkv",
         {"matroska",
          "libopus",
          "flt",
          48000,
          "mono",
          3,
          {},
          {{"b", "12k"}, {"application", "voip"}},
          {}}},
        {"opus-60ms.webm",
         {"webm", "libopus", "flt", 48000, "stereo", 3, {}, {{"frame_duration", "60"}}, {}}},
        {"opus.mp4", {"mp4", "libopus", "flt", 48000, "stereo", 3, {}, {}, {}}},
        {"vorbis.ogg", {"ogg", "libvorbis", "fltp", 44100, "stereo", 2, {}, {}, {}}},
        {"vorbis.webm", {"webm", "libvorbis", "fltp", 48000, "stereo", 2, {}, {}, {}}},
        {"wma1.asf", {"asf", "wmav1", "fltp", 44100, "stereo", 2, {}, {}, {}}},
        {"wma2.asf", {"asf", "wmav2", "fltp", 44100, "stereo", 2, {}, {}, {}}},
        {"wma2-slow.asf", {"asf", "wmav2", "fltp", 44100, "stereo", 2, {}, slow, {}}}};
}

/// PCM of every kind, and codecs that predict it.
[[nodiscard]] inline std::vector<SoundClip> predictedAndPcmClips() {
    return {{"alac.mp4", {"ipod", "alac", "s16p", 44100, "stereo", 2, {}, {}, {}}},
            {"flac.flac", {"flac", "flac", "s16", 44100, "stereo", 2, {}, {}, {}}},
            {"flac.mkv", {"matroska", "flac", "s32", 96000, "stereo", 1, {}, {}, {}}},
            {"flac.ogg", {"ogg", "flac", "s16", 44100, "stereo", 2, {}, {}, {}}},
            {"wavpack.wv", {"wv", "wavpack", "s16p", 44100, "stereo", 2, {}, {}, {}}},
            {"tta.tta", {"tta", "tta", "s16", 44100, "stereo", 3, {}, {}, {}}},
            {"truehd.mkv", {"matroska", "truehd", "s16", 48000, "stereo", 1, {}, {}, {}}},
            {"dts.dts", {"dts", "dca", "s32", 48000, "stereo", 2, {}, {}, {}}},
            {"ima.wav", {"wav", "adpcm_ima_wav", "s16p", 44100, "stereo", 2, {}, {}, {}}},
            {"ima-qt.mov", {"mov", "adpcm_ima_qt", "s16p", 44100, "stereo", 1, {}, {}, {}}},
            {"ms.wav", {"wav", "adpcm_ms", "s16", 44100, "stereo", 2, {}, {}, {}}},
            {"yamaha.wav", {"wav", "adpcm_yamaha", "s16", 44100, "stereo", 2, {}, {}, {}}},
            {"g722.wav", {"wav", "g722", "s16", 16000, "mono", 2, {}, {}, {}}},
            {"speex.ogg", {"ogg", "libspeex", "s16", 16000, "mono", 2, {}, {}, {}}},
            {"u8.wav", {"wav", "pcm_u8", "u8", 22050, "mono", 1, {}, {}, {}}},
            {"s16.wav", {"wav", "pcm_s16le", "s16", 48000, "stereo", 1, {}, {}, {}}},
            {"s24.mov", {"mov", "pcm_s24le", "s32", 48000, "stereo", 1, {}, {}, {}}},
            {"s32.wav", {"wav", "pcm_s32le", "s32", 48000, "quad", 1, {}, {}, {}}},
            {"s16be.aiff", {"aiff", "pcm_s16be", "s16", 48000, "stereo", 1, {}, {}, {}}},
            {"f32.wav", {"wav", "pcm_f32le", "flt", 48000, "stereo", 1, {}, {}, {}}},
            {"f64.wav", {"wav", "pcm_f64le", "dbl", 48000, "stereo", 1, {}, {}, {}}},
            {"s16.mkv", {"matroska", "pcm_s16le", "s16", 44100, "stereo", 1, {}, {}, {}}},
            {"s16.avi", {"avi", "pcm_s16le", "s16", 44100, "stereo", 1, {}, {}, {}}},
            {"mulaw.au", {"au", "pcm_mulaw", "s16", 8000, "mono", 2, {}, {}, {}}}};
}

/// One for each codec and kind of container that matters to reading sound by number.
[[nodiscard]] inline std::vector<SoundClip> soundClips() {
    std::vector<SoundClip> clips = aacClips();
    for (const auto& others : {otherLossyClips(), predictedAndPcmClips()})
        clips.insert(clips.end(), others.begin(), others.end());
    return clips;
}

} // namespace tio::test
