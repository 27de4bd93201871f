#include "base/checks.h"
#include "ffmpeg_compat.h"
#include "input/InputAccess.h"
#include "picture/orientation.h"

#include <TARN/videoio/Metadata.h>

#include <utility>

namespace tio::ffmpeg {

namespace {

template <typename Number>
std::optional<Number> ifPositive(Number number) {
    return number > 0 ? std::optional(number) : std::nullopt;
}

std::optional<Rational> ifPositive(AVRational fraction) {
    if (fraction.num <= 0 || fraction.den <= 0)
        return std::nullopt;
    return Rational(fraction.num, fraction.den);
}

std::string textOf(const char* name) {
    return name != nullptr ? name : "";
}

void addTags(const AVDictionary* tags, std::map<std::string, std::string>& all) {
    const AVDictionaryEntry* tag = nullptr;
    while ((tag = av_dict_get(tags, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr)
        all[tag->key] = tag->value;
}

std::optional<Rational> durationOf(const AVFormatContext& context, const AVStream& stream) {
    if (stream.duration != AV_NOPTS_VALUE && stream.duration >= 0)
        return Rational(stream.duration, 1) * Rational(stream.time_base);
    if (context.duration != AV_NOPTS_VALUE && context.duration >= 0)
        return Rational(context.duration, AV_TIME_BASE);
    return std::nullopt;
}

// FFmpeg's second rate is the lowest one in whose ticks all times are that it has seen, that of the
// fields where a picture has two. An average over few pictures is off by the last one.
bool ratesDiffer(AVRational average, AVRational finest) {
    constexpr double tolerated = 0.01;
    if (average.num <= 0 || finest.num <= 0)
        return false;
    const double pictures = av_q2d(finest) / av_q2d(average);
    const bool same = std::abs(pictures - 1) < tolerated;
    const bool fields = std::abs(pictures - 2) < 2 * tolerated;
    return !same && !fields;
}

void describeColours(const AVCodecParameters& parameters, Metadata& metadata) {
    if (parameters.color_space != AVCOL_SPC_UNSPECIFIED)
        metadata.colourSpace = textOf(av_color_space_name(parameters.color_space));
    if (parameters.color_range != AVCOL_RANGE_UNSPECIFIED)
        metadata.colourRange = textOf(av_color_range_name(parameters.color_range));
    if (parameters.color_primaries != AVCOL_PRI_UNSPECIFIED)
        metadata.colourPrimaries = textOf(av_color_primaries_name(parameters.color_primaries));
    if (parameters.color_trc != AVCOL_TRC_UNSPECIFIED)
        metadata.colourTransfer = textOf(av_color_transfer_name(parameters.color_trc));
}

void describeSize(const AVStream& stream, Metadata& metadata) {
    const detail::Turning turning = detail::turningOf(stream);
    metadata.rotation = turning.degreesClockwise();
    metadata.mirrored = turning.isMirrored();
    metadata.turnIsExact = turning.exact;
    metadata.codedWidth = ifPositive(stream.codecpar->width);
    metadata.codedHeight = ifPositive(stream.codecpar->height);
    metadata.width = metadata.codedWidth;
    metadata.height = metadata.codedHeight;
    if (turning.isOnItsSide())
        std::swap(metadata.width, metadata.height);
}

void describePictures(const AVStream& stream, Metadata& metadata) {
    const AVCodecParameters& parameters = *stream.codecpar;
    describeSize(stream, metadata);
    if (const auto* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(parameters.format))) {
        metadata.pixelFormat = format->name;
        metadata.bits = ifPositive(format->comp[0].depth);
    }
    metadata.averageRate = ifPositive(stream.avg_frame_rate);
    metadata.rateVaries = ratesDiffer(stream.avg_frame_rate, stream.r_frame_rate);
    describeColours(parameters, metadata);
    metadata.sampleAspectRatio = ifPositive(stream.sample_aspect_ratio);
    if (!metadata.sampleAspectRatio)
        metadata.sampleAspectRatio = ifPositive(parameters.sample_aspect_ratio);
}

void describeSound(const AVCodecParameters& parameters, Metadata& metadata) {
    metadata.sampleFormat =
        textOf(av_get_sample_fmt_name(static_cast<AVSampleFormat>(parameters.format)));
    metadata.rate = ifPositive(parameters.sample_rate);
    metadata.channels = ifPositive(compat::channelCount(parameters));
    metadata.layout = compat::channelLayoutText(parameters);
}

} // namespace

Metadata metadataOf(const InputFormatContext& input, int streamIndex) {
    if (streamIndex < 0 || streamIndex >= input.getStreamCount())
        detail::failPlainly("There is no stream " + std::to_string(streamIndex) + ": " +
                            input.getUrl());
    // Only its tags and its duration are looked at.
    const AVFormatContext& context =
        detail::InputAccess::contextOf(const_cast<InputFormatContext&>(input));
    const AVStream& stream = *context.streams[streamIndex];
    Metadata metadata;
    metadata.container = input.getContainerName();
    metadata.type = input.getTypeOfStream(streamIndex);
    metadata.codec = input.getCodecNameOfStream(streamIndex);
    metadata.timeBase = stream.time_base;
    metadata.duration = durationOf(context, stream);
    metadata.bitRate = ifPositive(stream.codecpar->bit_rate);
    metadata.frameCount = ifPositive(stream.nb_frames);
    addTags(context.metadata, metadata.tags);
    addTags(stream.metadata, metadata.tags);
    if (metadata.type == StreamType::Video)
        describePictures(stream, metadata);
    else if (metadata.type == StreamType::Audio)
        describeSound(*stream.codecpar, metadata);
    return metadata;
}

} // namespace tio::ffmpeg
