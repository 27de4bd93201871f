#include "exact/write/encode/encoders.h"

#include "base/checks.h"
#include "exact/write/ClipTimes.h"
#include "exact/write/refusal.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

struct Name {
    const char* ours;
    std::array<const char*, 3> encoders; ///< the best first
};

constexpr std::array<Name, 10> namesOfCodecs = {{
    {"h264", {"libx264", "h264", nullptr}},
    {"hevc", {"libx265", "hevc", nullptr}},
    {"av1", {"libsvtav1", "libaom-av1", nullptr}},
    {"vp9", {"libvpx-vp9", nullptr, nullptr}},
    {"ffv1", {"ffv1", nullptr, nullptr}},
    {"mjpeg", {"mjpeg", nullptr, nullptr}},
    {"aac", {"aac", nullptr, nullptr}},
    {"opus", {"libopus", nullptr, nullptr}},
    {"vorbis", {"libvorbis", nullptr, nullptr}},
    {"pcm", {"pcm_f32le", nullptr, nullptr}},
}};

// Where the encoder's own is far from what the others take for good, or none at all.
double usualCrf(const std::string& encoder) {
    constexpr double av1 = 30;
    constexpr double vp9 = 31;
    return encoder == "libvpx-vp9" || encoder == "libaom-av1" ? vp9 : av1;
}

// FFmpeg's own encoders of lossy pictures aim at 200 kbit/s; this is fine detail at any size.
constexpr int usualQuantiser = 3;

class Settings {
public:
    Settings(AVCodecContext& context, const std::string& path) : owner(context), clip(path) {}

    [[nodiscard]] const AVOption* find(const std::string& key) const {
        return av_opt_find(&owner, key.c_str(), nullptr, 0, AV_OPT_SEARCH_CHILDREN);
    }

    [[nodiscard]] bool knows(const std::string& key) const {
        const AVOption* option = find(key);
        return option != nullptr && (option->flags & AV_OPT_FLAG_ENCODING_PARAM) != 0;
    }

    /// @param called  what the caller calls the option
    void set(const std::string& key, const std::string& value, const std::string& called) const {
        if (!knows(key))
            refuse(clip, "the encoder " + encoder() + " has no option \"" + called + "\"");
        if (av_opt_set(&owner, key.c_str(), value.c_str(), AV_OPT_SEARCH_CHILDREN) < 0)
            refuse(clip, "the encoder " + encoder() + " does not take the " + called + " \"" +
                             value + "\"");
    }

    void set(const std::string& key, const std::string& value) const { set(key, value, key); }

    [[nodiscard]] std::string encoder() const { return owner.codec->name; }

private:
    AVCodecContext& owner;
    const std::string& clip;
};

// x265 writes to standard error, past FFmpeg's log. What the caller says of it comes later and
// wins.
void silence(const Settings& settings, const std::map<std::string, std::string>& options) {
    const std::string key = "x265-params";
    if (!settings.knows(key))
        return;
    const auto given = options.find(key);
    settings.set(key, "log-level=none" + (given == options.end() || given->second.empty()
                                              ? std::string()
                                              : ":" + given->second));
}

CodecContextHandle makeContext(const AVCodec& codec, const std::string& path) {
    CodecContextHandle context(avcodec_alloc_context3(&codec));
    checkResult(context ? 0 : AVERROR(ENOMEM), {"encoders", 10}, path);
    context->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    return context;
}

void setBitRate(AVCodecContext& context, std::optional<int64_t> bitRate, const std::string& path) {
    if (!bitRate)
        return;
    if (*bitRate <= 0)
        refuse(path, "a bit rate of " + std::to_string(*bitRate) + " bits a second");
    context.bit_rate = *bitRate;
}

// What the option says; x264 and x265 say nothing, and x264 takes whatever is beyond for 51.
int worstCrf(const Settings& settings) {
    constexpr int x26 = 51;
    constexpr int others = 63;
    constexpr int unlimited = 1000;
    if (settings.encoder().rfind("libx26", 0) == 0)
        return x26;
    const AVOption* option = settings.find("crf");
    return option != nullptr && option->max < unlimited ? static_cast<int>(option->max) : others;
}

// A negative one turns it off.
void requireCrf(double crf, const Settings& settings, const std::string& path) {
    const int worst = worstCrf(settings);
    if (!(crf >= 0 && crf <= worst)) // nor what is no number
        refuse(path, "a constant quality of " + std::to_string(crf) + "; the encoder " +
                         settings.encoder() + " takes 0 to " + std::to_string(worst));
}

void setQuality(AVCodecContext& context, const Settings& settings, const ClipWriterOptions& options,
                const std::string& path) {
    const std::string encoder = settings.encoder();
    if (options.crf && options.bitRate)
        refuse(path, "a constant quality and a bit rate exclude each other");
    if (options.crf && settings.knows("crf"))
        requireCrf(*options.crf, settings, path);
    const bool keepsOwn = encoder == "libx264" || encoder == "libx265" || encoder == "libx264rgb";
    if (options.crf || (settings.knows("crf") && !options.bitRate && !keepsOwn)) {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%g", options.crf.value_or(usualCrf(encoder)));
        settings.set("crf", text.data());
        if (encoder.rfind("libvpx", 0) == 0 || encoder.rfind("libaom", 0) == 0)
            context.bit_rate = 0; // otherwise an upper bound
    } else if (!options.bitRate && !settings.knows("crf")) {
        context.flags |= AV_CODEC_FLAG_QSCALE;
        context.global_quality = FF_QP2LAMBDA * usualQuantiser;
    }
}

// x264 takes numbers, too. It writes to standard error when it does not know a name.
void requirePresetOfX264(const std::string& encoder, const std::string& preset,
                         const std::string& path) {
    constexpr std::array<const char*, 10> names = {"ultrafast", "superfast", "veryfast", "faster",
                                                   "fast",      "medium",    "slow",     "slower",
                                                   "veryslow",  "placebo"};
    std::string all;
    for (std::size_t number = 0; number < names.size(); ++number) {
        if (preset == names[number] || preset == std::to_string(number))
            return;
        all += std::string(number == 0 ? "" : ", ") + names[number];
    }
    refuse(path, "the encoder " + encoder + " has no preset \"" + preset + "\"; it has " + all);
}

void setPreset(const Settings& settings, const std::string& preset, const std::string& path) {
    if (preset.empty())
        return;
    if (settings.encoder().rfind("libx264", 0) == 0)
        requirePresetOfX264(settings.encoder(), preset, path);
    if (settings.knows("preset"))
        settings.set("preset", preset);
    else if (settings.knows("cpu-used"))
        settings.set("cpu-used", preset, "preset");
    else
        refuse(path, "the encoder " + settings.encoder() + " has no presets");
}

} // namespace

const AVCodec& findEncoder(const std::string& name, AVMediaType type, const std::string& path) {
    const AVCodec* found = nullptr;
    for (const Name& entry : namesOfCodecs) {
        if (name != entry.ours)
            continue;
        for (const char* encoder : entry.encoders) {
            if (found == nullptr && encoder != nullptr)
                found = avcodec_find_encoder_by_name(encoder);
        }
    }
    if (found == nullptr)
        found = avcodec_find_encoder_by_name(name.c_str());
    if (found == nullptr)
        refuse(path, "there is no encoder \"" + name + "\"");
    if (found->type != type)
        refuse(path, "the encoder \"" + name + "\" does not make " +
                         (type == AVMEDIA_TYPE_VIDEO ? "pictures" : "sound"));
    return *found;
}

// Behind all B-pictures of a group, and the references on both sides. The presets of x264 have
// three B-pictures, but for the slowest two; those of x265 four to sixteen.
std::size_t reorderReach(const AVCodec& encoder, const ClipWriterOptions& options) {
    constexpr std::size_t references = 2;
    constexpr std::size_t usual = 3;
    const auto given = options.options.find("bf");
    const int count = given != options.options.end() ? std::atoi(given->second.c_str()) : -1;
    if (count >= 0)
        return std::min(static_cast<std::size_t>(count) + references, furthestReach);
    const std::string name = encoder.name;
    const bool slowest = options.preset == "veryslow" || options.preset == "placebo" ||
                         options.preset == "8" || options.preset == "9";
    const bool tuned = options.options.count("x264-params") + options.options.count("x264opts") +
                           options.options.count("x264_params") + options.options.count("tune") +
                           options.options.count("preset") !=
                       0;
    const bool known = name.rfind("libx264", 0) == 0 && !slowest && !tuned;
    return known ? usual + references : furthestReach;
}

bool startsAfresh(const AVCodec& encoder) {
    return encoder.priv_class != nullptr &&
           av_opt_find(const_cast<AVClass**>(&encoder.priv_class), "forced-idr", nullptr, 0,
                       AV_OPT_SEARCH_FAKE_OBJ) != nullptr;
}

CodecContextHandle makePictureContext(const AVCodec& codec, const ClipWriterOptions& options,
                                      const std::string& path) {
    CodecContextHandle context = makeContext(codec, path);
    const Settings settings(*context, path);
    if (options.threads < 0)
        refuse(path, std::to_string(options.threads) + " threads");
    context->thread_count = options.threads;
    setBitRate(*context, options.bitRate, path);
    setPreset(settings, options.preset, path);
    setQuality(*context, settings, options, path);
    for (const auto& [key, value] : options.options)
        settings.set(key, value);
    silence(settings, options.options);
    return context;
}

CodecContextHandle makeSoundContext(const AVCodec& codec, const ClipWriterOptions& options,
                                    const std::string& path) {
    CodecContextHandle context = makeContext(codec, path);
    const Settings settings(*context, path);
    setBitRate(*context, options.audioBitRate, path);
    for (const auto& [key, value] : options.audioOptions)
        settings.set(key, value);
    return context;
}

} // namespace tio::ffmpeg::detail
