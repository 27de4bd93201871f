#include "exact/write/encode/PictureEncoder.h"

#include "base/checks.h"
#include "exact/write/encode/encoders.h"
#include "exact/write/refusal.h"

#include <algorithm>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

constexpr int64_t microseconds = 1000000;
constexpr int64_t mostRate = 1000; // pictures a second that encoders take for a rate
const Fraction usualRate{30};      // where nothing tells

constexpr Places at("PictureEncoder");

AVRational narrow(const Fraction& value) {
    return {static_cast<int>(value.numerator), static_cast<int>(value.denominator)};
}

std::string sizeText(int width, int height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

// Other encoders write times into their pictures, in 16 bits or fewer: they are told of an even
// rate.
bool takesAnyTimes(const AVCodec& codec) {
    const std::string name = codec.name;
    return name.rfind("libx26", 0) == 0 || name.rfind("libvpx", 0) == 0 || name == "libaom-av1" ||
           name == "libsvtav1";
}

// A rate that the encoder may believe; some codecs write it down in 16 bits.
Fraction rateFor(const ClipWriterOptions& options, std::optional<Fraction> duration) {
    Fraction rate = options.rate.value_or(usualRate);
    if (!options.rate && duration && *duration > 0)
        rate = Fraction(duration->denominator, duration->numerator);
    constexpr int64_t most = 65535;
    const bool plain = rate.numerator <= most && rate.denominator <= most;
    return plain && rate <= mostRate && rate > 0 ? rate : usualRate;
}

StoredColours coloursFor(const AVCodec& codec, const ClipWriterOptions& options,
                         const ConstImageView& first, const std::string& path) {
    const auto stored = storedFormat(codec, first.format, options.pixelFormat, path);
    return storedColours(options.colours, stored, first.height);
}

} // namespace

PictureEncoder::PictureEncoder(const AVCodec& codec, const ClipWriterOptions& options,
                               const ConstImageView& first, std::optional<Fraction> duration,
                               bool inOrder, std::string path)
    : name(std::move(path)),
      context(makePictureContext(codec, options, name)),
      converter(storedFormat(codec, first.format, options.pixelFormat, name),
                coloursFor(codec, options, first, name)) {
    context->pix_fmt = storedFormat(codec, first.format, options.pixelFormat, name);
    context->width = first.width;
    context->height = first.height;
    requireSizeOfCodec(first);
    const StoredColours colours = coloursFor(codec, options, first, name);
    context->colorspace = colours.matrix;
    context->color_primaries = colours.primaries;
    context->color_trc = colours.transfer;
    context->color_range = colours.range;
    context->sample_aspect_ratio = narrow(options.sampleAspectRatio);
    if (inOrder && options.options.count("bf") == 0)
        context->max_b_frames = 0;
    open(options, duration);
}

void PictureEncoder::open(const ClipWriterOptions& options, std::optional<Fraction> duration) {
    const Fraction rate = rateFor(options, duration);
    context->framerate = narrow(rate);
    context->time_base = options.rate == rate ? narrow(Fraction(rate.denominator, rate.numerator))
                                              : AVRational{1, static_cast<int>(microseconds)};
    countsAlone = !takesAnyTimes(*context->codec);
    if (countsAlone)
        context->time_base = narrow(Fraction(rate.denominator, rate.numerator));
    if (options.fragmented && options.options.count("g") == 0)
        context->gop_size = static_cast<int>(std::max<Wide>(roundedProduct(rate, 1), 1));
    // A forced key picture has to be one from which decoding can begin.
    av_opt_set(context->priv_data, "forced-idr", "1", 0);
    checkResult(avcodec_open2(context.get(), context->codec, nullptr), at(10), name);
}

// Encoders of this family stop the process or say "invalid argument", without the reason.
void PictureEncoder::requireSizeOfCodec(const ConstImageView& picture) const {
    const std::string encoder = context->codec->name;
    const bool cropsItself = encoder == "ffv1" || encoder.rfind("libvpx", 0) == 0 ||
                             encoder == "mjpeg" || encoder == "libaom-av1" || encoder == "mpeg4";
    const AVPixFmtDescriptor& layout = *av_pix_fmt_desc_get(context->pix_fmt);
    const int across = cropsItself ? 1 : 1 << layout.log2_chroma_w;
    const int down = cropsItself ? 1 : 1 << layout.log2_chroma_h;
    const int least = encoder == "libsvtav1" ? 64 : encoder == "libx265" ? 32 : 1;
    const int width = picture.width;
    const int height = picture.height;
    if (width % across == 0 && height % down == 0 && width >= least && height >= least)
        return;
    const auto below = [&](int length, int step) {
        return std::max(length / step * step, (least + step - 1) / step * step);
    };
    const auto above = [&](int length, int step) {
        return std::max((length + step - 1) / step * step, (least + step - 1) / step * step);
    };
    const std::string small = sizeText(below(width, across), below(height, down));
    const std::string large = sizeText(above(width, across), above(height, down));
    refuse(name, "the encoder " + encoder + " cannot take pictures of " + sizeText(width, height) +
                     " as " + layout.name + "; it can take " + small +
                     (small == large ? "" : " or " + large));
}

void PictureEncoder::requireSize(const ConstImageView& picture) const {
    if (picture.width != context->width || picture.height != context->height)
        refuse(name, "a picture of " + sizeText(picture.width, picture.height) +
                         " among those of " + sizeText(context->width, context->height));
}

// Rising, however close the times are.
int64_t PictureEncoder::nextTick(const Fraction& time) {
    if (countsAlone)
        return lastTick + 1;
    if (!start)
        start = time;
    const Fraction passed = difference(time, *start).value_or(Fraction(0));
    const AVRational base = context->time_base;
    const Wide tick = roundedProduct(passed, base.den) / base.num;
    return std::max(static_cast<int64_t>(tick), lastTick + 1);
}

void PictureEncoder::submit(const ConstImageView& picture, const Fraction& time, bool key) {
    const FrameHandle frame = converter.convert(picture, name);
    const int64_t tick = nextTick(time);
    frame->pts = tick;
    frame->pict_type = key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    frame->sample_aspect_ratio = context->sample_aspect_ratio;
    if ((context->flags & AV_CODEC_FLAG_QSCALE) != 0)
        frame->quality = context->global_quality;
    pending.push_back({tick, taken});
    const int sent = avcodec_send_frame(context.get(), frame.get());
    if (sent < 0)
        pending.pop_back();
    checkResult(sent, at(20), name);
    lastTick = tick;
    ++taken;
}

void PictureEncoder::flush(const PacketSink& sink) {
    checkResult(avcodec_send_frame(context.get(), nullptr), at(30), name);
    drain(sink);
}

void PictureEncoder::drain(const PacketSink& sink) {
    while (true) {
        const PacketHandle packet(av_packet_alloc());
        checkResult(packet ? 0 : AVERROR(ENOMEM), at(40), name);
        const int received = avcodec_receive_packet(context.get(), packet.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF)
            return;
        checkResult(received, at(41), name);
        packet->pts = numberOf(packet->pts);
        sink(*packet);
    }
}

int64_t PictureEncoder::numberOf(int64_t tick) {
    const auto found = std::find_if(pending.begin(), pending.end(),
                                    [tick](const Pending& one) { return one.tick == tick; });
    if (found == pending.end())
        failAssertion("\"" + name + "\": the encoder " + context->codec->name +
                          " gave a picture that it was not given",
                      "false", at(50));
    const int64_t number = found->number;
    pending.erase(found);
    return number;
}

} // namespace tio::ffmpeg::detail
