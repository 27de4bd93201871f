#include "media/EncodingOptions.h"

#include "media/TimeList.h"
#include "terminal/Failure.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>
#include <string_view>

namespace tio::tool {

namespace {

constexpr int worstQuality = 63; // of VP9 and AV1; others end at 51

// Of x264 and x265, which tell of an unknown one on standard error themselves.
constexpr std::array<std::string_view, 10> presets = {
    "ultrafast", "superfast", "veryfast", "faster",   "fast",
    "medium",    "slow",      "slower",   "veryslow", "placebo"};

void setRate(ffmpeg::ClipWriterOptions& clip, const std::string& text) {
    const auto rate = parseTime(text);
    if (!rate || !(ffmpeg::Rational() < *rate))
        throw CLI::ValidationError("--rate", "write pictures per second, as 25 or 30000/1001");
    clip.rate = *rate;
}

} // namespace

bool EncodingOptions::areUsual() const {
    return clip.codec.empty() && clip.preset.empty() && !clip.crf && !clip.bitRate && !clip.rate &&
           !clip.fragmented;
}

ffmpeg::ClipWriterOptions EncodingOptions::forClip(const std::string& path) const {
    ffmpeg::ClipWriterOptions options = clip;
    const bool webm =
        CLI::detail::to_lower(std::filesystem::path(path).extension().string()) == ".webm";
    const bool hasPresets =
        options.codec.empty() ? !webm : options.codec == "h264" || options.codec == "hevc";
    if (hasPresets && options.preset.empty())
        options.preset = "veryfast";
    if (hasPresets && std::find(presets.begin(), presets.end(), options.preset) == presets.end())
        throw Failure(
            ExitCode::Usage, "--preset",
            "there is no preset " + options.preset +
                "; they run from ultrafast, "
                "superfast, veryfast, faster, fast, medium, slow, slower to veryslow, and "
                "placebo");
    return options;
}

void addEncodingOptions(CLI::App& command, EncodingOptions& options) {
    ffmpeg::ClipWriterOptions& clip = options.clip;
    command
        .add_option("--codec", clip.codec,
                    "h264, hevc, av1, vp9, ffv1, mjpeg or an encoder of FFmpeg's [what is usual]")
        ->type_name("NAME");
    command
        .add_option("--preset", clip.preset, "Speed of the encoder, in its own words [veryfast]")
        ->type_name("P");
    command
        .add_option("--crf", clip.crf, "Quality of the pictures, less is better [the encoder's]")
        ->check(CLI::Range(0, worstQuality, ""))
        ->type_name("N");
    command.add_option("--bitrate", clip.bitRate, "Bits per second of the pictures")
        ->check(CLI::Range(1, std::numeric_limits<int>::max(), ""))
        ->type_name("N");
    command
        .add_option_function<std::string>(
            "--rate", [&clip](const std::string& text) { setRate(clip, text); },
            "Pictures per second, as 25 or 30000/1001 [at their own times]")
        ->type_name("R");
    command.add_flag("--fragmented", clip.fragmented,
                     "Write the clip while it grows: what is there plays, whatever happens");
}

} // namespace tio::tool
