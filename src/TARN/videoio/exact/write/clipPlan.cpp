#include "exact/write/clipPlan.h"

#include "exact/write/encode/PictureEncoder.h"
#include "exact/write/encode/SoundEncoder.h"
#include "exact/write/encode/encoders.h"
#include "exact/write/refusal.h"

#include <TARN/videoio/Exception.h>

#include <algorithm>
#include <cctype>
#include <limits>

namespace tio::ffmpeg::detail {

namespace {

bool isPositive(const Fraction& value) {
    return value.denominator > 0 && value.numerator > 0;
}

// A file that is written while it grows tells its ticks first.
void decideOnTicks(TimeRules& rules) {
    constexpr int64_t usual = 3000000; // holds microseconds and the steps of all common rates
    constexpr int64_t fine = 10000;    // players have had trouble with coarser ones
    if (!rules.grid)
        rules.grid = Fraction(1, usual);
    rules.exactScale = rules.grid->denominator;
    while (rules.exactScale < fine)
        rules.exactScale *= 2;
}

TimeRules checkTimes(const std::string& path, const ClipWriterOptions& options,
                     const ClipContainer& container) {
    if (options.origin != ClipOrigin::AsGiven && options.origin != ClipOrigin::First)
        refuse(path, "there is no origin " + std::to_string(static_cast<int32_t>(options.origin)));
    TimeRules rules;
    rules.fixedScale = container.fixedScale();
    rules.origin = options.origin;
    for (const auto& [value, name] :
         {std::pair{options.rate, "rate"}, std::pair{options.timeBase, "time base"}}) {
        if (value && !isPositive(*value))
            refuse(path, "the " + std::string(name) + " has to be above 0");
    }
    if (options.rate)
        rules.step = Fraction(options.rate->denominator, options.rate->numerator);
    rules.grid = options.timeBase ? options.timeBase : rules.step;
    if (options.timeBase) {
        rules.preferredScale = rules.grid->denominator;
        const auto ratio = rules.step
                               ? makeFraction(Wide{rules.step->numerator} * rules.grid->denominator,
                                              Wide{rules.step->denominator} * rules.grid->numerator)
                               : Fraction(1);
        if (!ratio || ratio->denominator != 1)
            refuse(path, "pictures " + toText(*rules.step) +
                             " s apart are not on the grid of the time base " +
                             toText(*rules.grid) + " s");
    }
    if (options.fragmented && rules.fixedScale == 0)
        decideOnTicks(rules);
    return rules;
}

void checkLook(const std::string& path, const ClipWriterOptions& options,
               const ClipContainer& container) {
    const auto colours = static_cast<int32_t>(options.colours);
    if (colours < 0 || colours > static_cast<int32_t>(ClipColours::Bt2020))
        refuse(path, "there are no colours " + std::to_string(colours));
    constexpr int quarter = 90;
    constexpr int whole = 360;
    if (options.rotation % quarter != 0 || options.rotation < 0 || options.rotation >= whole)
        refuse(path, "a turn by " + std::to_string(options.rotation) +
                         " degrees; 0, 90, 180 and 270 are possible");
    if ((options.rotation != 0 || options.mirrored) && !(container.mp4 && container.pictures))
        refuse(path, std::string(container.extension) +
                         " cannot say that pictures are turned; .mp4 and .mov can");
    constexpr int64_t largest = 65535; // some codecs have 16 bits for it
    const Fraction& aspect = options.sampleAspectRatio;
    if (!isPositive(aspect) || std::max(aspect.numerator, aspect.denominator) > largest)
        refuse(path, "pixels of " + toText(aspect) + " cannot be written");
}

void checkDescription(const std::string& path, const ClipWriterOptions& options,
                      const ClipContainer& container) {
    const std::string muxer = container.muxer;
    if (options.fragmented && !container.mp4 && !container.isMatroska())
        refuse(path, std::string(container.extension) + " cannot be written in fragments");
    if (options.fragmented && container.mp4 && !options.chapters.empty())
        refuse(path,
               std::string(container.extension) + " in fragments cannot hold chapters; .mkv can");
    if (!options.chapters.empty() && (muxer == "wav" || muxer == "flac"))
        refuse(path, std::string(container.extension) + " has no chapters");
    constexpr int64_t nanoseconds = 1000000000;
    Fraction before{0};
    for (const ClipChapter& chapter : options.chapters) {
        const auto& [begin, end, title] = chapter;
        if (begin.denominator <= 0 || end.denominator <= 0 || begin < before || end <= begin)
            refuse(path, "the chapter \"" + title + "\" does not follow the one before");
        if (roundedProduct(end, nanoseconds) > std::numeric_limits<int64_t>::max())
            refuse(path, "the chapter \"" + title + "\" ends at " + toText(end) +
                             " s, which 64 bits of nanoseconds do not hold");
        before = end;
    }
    constexpr int64_t milliseconds = 1000; // the coarsest tick in which MP4's chapters are written
    if (container.mp4 && finestWithChapters(options) < milliseconds)
        refuse(path, std::string(container.extension) +
                         " cannot hold chapters longer than 24 days; .mkv can");
    const bool isCode = options.language.size() == 3 &&
                        std::all_of(options.language.begin(), options.language.end(),
                                    [](unsigned char one) { return std::islower(one) != 0; });
    if (!options.language.empty() && !isCode)
        refuse(path, "\"" + options.language + "\" is no language of three letters");
    const auto created = options.metadata.find("creation_time");
    int64_t parsed = 0;
    if (created != options.metadata.end() && av_parse_time(&parsed, created->second.c_str(), 0) < 0)
        refuse(path, "\"" + created->second + "\" is no time of creation");
}

/// A view of a size that all encoders take, without pixels.
ConstImageView trialPicture() {
    ConstImageView view;
    view.height = 240;
    view.width = 320;
    return view;
}

std::string ownOptions(const ClipWriterOptions& options) {
    std::string list = options.preset.empty() ? "" : "the preset \"" + options.preset + "\"";
    for (const auto& [key, value] : options.options) {
        list += list.empty() ? "" : ", ";
        list += key;
        list += " = \"" + value + "\"";
    }
    return list;
}

// Presets and options of the encoder's own mean nothing to anybody else before it opens.
void tryPictures(const AVCodec& codec, const ClipWriterOptions& options, const std::string& path) {
    const ConstImageView trial = trialPicture();
    static_cast<void>(storedFormat(codec, trial.format, options.pixelFormat, path));
    static_cast<void>(makePictureContext(codec, options, path));
    if (options.preset.empty() && options.options.empty())
        return;
    try {
        const PictureEncoder encoder(codec, options, trial, std::nullopt, false, path);
    } catch (const Exception& failure) {
        refuse(path, std::string("the encoder ") + codec.name + " does not open with " +
                         ownOptions(options) + ": " + failure.what());
    }
}

void trySound(const AVCodec& codec, const ClipWriterOptions& options, const std::string& path) {
    constexpr int stereo = 2;
    const int channels = options.audioChannels > 0 ? options.audioChannels : stereo;
    const SoundEncoder encoder(codec, options, channels, path);
}

} // namespace

ClipWriterOptions withUsualSigns(ClipWriterOptions options) {
    const auto change = [](Fraction& value) {
        value = withPositiveDenominator(value).value_or(value);
    };
    for (auto* optional : {&options.rate, &options.timeBase}) {
        if (*optional)
            change(**optional);
    }
    change(options.sampleAspectRatio);
    for (ClipChapter& chapter : options.chapters) {
        change(chapter.begin);
        change(chapter.end);
    }
    return options;
}

int64_t finestWithChapters(const ClipWriterOptions& options) {
    constexpr Wide mostTicks = 2147483646; // from one chapter to the next
    Fraction longest{0};
    Fraction before{0};
    for (const ClipChapter& chapter : options.chapters) {
        for (const Fraction& next : {chapter.begin, chapter.end})
            longest = std::max(longest, difference(next, before).value_or(next));
        before = chapter.begin;
    }
    if (longest.numerator == 0)
        return finestScale;
    const Wide finest = mostTicks * longest.denominator / longest.numerator;
    return static_cast<int64_t>(std::min<Wide>(finest, finestScale));
}

ClipPlan planClip(const std::string& path, const ClipWriterOptions& options) {
    ClipPlan plan;
    plan.container = &containerOf(path);
    plan.times = checkTimes(path, options, *plan.container);
    checkLook(path, options, *plan.container);
    checkDescription(path, options, *plan.container);
    if (options.audioRate < 0 || options.audioChannels < 0)
        refuse(path, "a rate or a number of channels below 0");
    if (!plan.container->pictures && options.audioRate == 0)
        refuse(path, std::string(plan.container->extension) +
                         " is for sound alone, and no rate of samples is given");
    if (plan.container->pictures) {
        const std::string name = options.codec.empty() ? plan.container->codec : options.codec;
        plan.codec = &findEncoder(name, AVMEDIA_TYPE_VIDEO, path);
        requireHolds(*plan.container, plan.codec->id,
                     std::string("what the encoder ") + plan.codec->name + " makes", path);
        const AVCodecDescriptor* about = avcodec_descriptor_get(plan.codec->id);
        plan.times.reorders = about != nullptr && (about->props & AV_CODEC_PROP_REORDER) != 0;
        plan.times.startsAfresh = startsAfresh(*plan.codec);
        plan.times.reach = reorderReach(*plan.codec, options);
        tryPictures(*plan.codec, options, path);
    }
    if (options.audioRate > 0) {
        const std::string name =
            options.audioCodec.empty() ? plan.container->audioCodec : options.audioCodec;
        plan.audioCodec = &findEncoder(name, AVMEDIA_TYPE_AUDIO, path);
        requireHolds(*plan.container, plan.audioCodec->id,
                     std::string("what the encoder ") + plan.audioCodec->name + " makes", path);
        trySound(*plan.audioCodec, options, path);
    }
    return plan;
}

} // namespace tio::ffmpeg::detail
