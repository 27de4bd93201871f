#include "exact/write/ClipAssembly.h"

#include "base/checks.h"
#include "exact/write/ClipMuxer.h"
#include "exact/write/MatroskaDelay.h"
#include "exact/write/refusal.h"

#include <utility>

namespace tio::ffmpeg::detail {

namespace {

/// A track while it is copied into the clip: its next packet, times and all.
class Track {
public:
    Track(PacketSpool& packets, int streamNumber) : spool(packets), stream(streamNumber) {
        spool.rewind();
    }

    template <typename GiveTimes>
    void advance(const GiveTimes& giveTimes) {
        packet = spool.next();
        if (packet)
            giveTimes(*packet, index++);
    }

    PacketSpool& spool;
    int stream;
    PacketHandle packet;
    int64_t index = 0;
};

bool isEarlier(const AVPacket& a, AVRational ticksOfA, const AVPacket& b, AVRational ticksOfB) {
    return av_compare_ts(a.dts, ticksOfA, b.dts, ticksOfB) <= 0;
}

// Samples that the encoder of AAC made up to fill its last frame. Those of Opus and MP3 say so
// themselves, and others end with a shorter frame.
int64_t unheard(const AVPacket& packet, const AVCodecContext& encoder) {
    const bool fills = encoder.codec_id == AV_CODEC_ID_AAC && packet.duration > 0;
    return fills ? encoder.frame_size - packet.duration : 0;
}

} // namespace

// Where sound begins after 0, MP4's muxer takes the run-in of a codec for sound, unless the first
// packet is said to be heard later than it is decoded.
void giveSoundTimes(AVPacket& packet, const AVCodecContext& encoder, int64_t index, int64_t begin,
                    bool mp4) {
    const bool runIn = mp4 && index == 0 && begin > 0 && packet.pts < 0;
    const int64_t ahead = runIn ? -packet.pts : 0;
    packet.dts = packet.pts + begin;
    packet.pts = packet.dts + ahead;
    packet.duration -= runIn ? std::min(ahead, packet.duration - 1) : 0;
    if (const int64_t rest = unheard(packet, encoder); rest > 0 && !mp4)
        cutOffEnd(packet, rest);
}

std::optional<int64_t> movieScale(const ClipContainer& container, const Fraction& pictures,
                                  const Fraction& sound, int64_t scale, int64_t finest) {
    constexpr int64_t milliseconds = 1000;
    const auto both = commonMultiple(pictures.denominator, sound.denominator, finest);
    const AVOutputFormat* muxer = av_guess_format(container.muxer, nullptr, nullptr);
    const bool free = av_opt_find(const_cast<AVClass**>(&muxer->priv_class), "movie_timescale",
                                  nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ) != nullptr;
    if (!free)
        return both && milliseconds % *both == 0 ? std::optional(milliseconds) : std::nullopt;
    if (!both)
        return both;
    if (const auto fine = commonMultiple(scale, *both, finest))
        return std::max(*fine, milliseconds % *fine == 0 ? milliseconds : *fine);
    return both;
}

void assembleClip(const std::string& path, const std::string& clip, const ClipContainer& container,
                  const ClipWriterOptions& options, const EncodedPictures* pictures,
                  const EncodedSound* sound) {
    ClipMuxer muxer(container, clip);
    const int64_t scale = pictures != nullptr ? pictures->times.scale() : 1;
    std::optional<Track> video;
    std::optional<Track> audio;
    std::optional<PictureTrack> shown;
    AVRational pictureTicks{1, static_cast<int>(scale)};
    AVRational soundTicks{1, 1};
    int64_t soundBegin = 0;
    if (pictures != nullptr) {
        video.emplace(pictures->spool, muxer.addPictures(pictures->encoder, options, scale));
        shown.emplace(pictures->times, pictures->order, scale, !container.isMatroska());
    }
    if (sound != nullptr) {
        soundTicks.den = sound->encoder.sample_rate;
        soundBegin = static_cast<int64_t>(roundedProduct(sound->begin, soundTicks.den));
        audio.emplace(sound->spool, muxer.addSound(sound->encoder, options));
    }
    const auto nextPicture = [&] {
        video->advance([&](AVPacket& one, int64_t index) { shown->giveTimes(one, index); });
    };
    const auto nextSound = [&] {
        audio->advance([&](AVPacket& one, int64_t index) {
            giveSoundTimes(one, sound->encoder, index, soundBegin, container.mp4);
        });
    };
    const Fraction first = pictures != nullptr ? pictures->times.first() : Fraction(0);
    const Fraction begin = sound != nullptr ? sound->begin : Fraction(0);
    muxer.begin(path, options,
                movieScale(container, first, begin, scale == 1 ? soundTicks.den : scale,
                           finestWithChapters(options))
                    .value_or(1000));
    if (video)
        nextPicture();
    if (audio)
        nextSound();
    while ((video && video->packet) || (audio && audio->packet)) {
        const bool noSound = !audio || !audio->packet;
        const bool picture =
            video && video->packet &&
            (noSound || isEarlier(*video->packet, pictureTicks, *audio->packet, soundTicks));
        Track& track = picture ? *video : *audio;
        muxer.write(*track.packet, track.stream);
        if (picture)
            nextPicture();
        else
            nextSound();
    }
    muxer.end();
}

} // namespace tio::ffmpeg::detail
