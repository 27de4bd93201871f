#include "exact/write/copy/CopiedStream.h"

#include "base/checks.h"
#include "exact/write/ClipTimes.h"
#include "exact/write/PictureTrack.h"
#include "exact/write/refusal.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

// H.264 reorders by at most 16 pictures.
constexpr std::size_t reorderReach = 20;

// So many packets wait for the first one with a decoding time.
constexpr std::size_t mostGuessed = 64;

// So many packets wait at most for one that is shown late enough.
constexpr std::size_t mostHeld = 1024;

// Up to here, a few times can be added without leaving 64 bits. In nanoseconds it is 63 years.
constexpr int64_t furthestTime = 2000000000000000000;

bool isNear(int64_t time) {
    return time >= -furthestTime && time <= furthestTime;
}

bool isKey(const AVPacket& packet) {
    return (packet.flags & AV_PKT_FLAG_KEY) != 0;
}

bool isHidden(const AVPacket& packet) {
    return (packet.flags & AV_PKT_FLAG_DISCARD) != 0;
}

} // namespace

CopiedStream::CopiedStream(const AVStream& original, CopySetting& common, bool leads)
    : stream(original),
      setting(common),
      times(original, common.container),
      leading(leads),
      pictures(original.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
    if (setting.from)
        firstTick = firstTickFrom(*setting.from);
    if (setting.to)
        endTick = firstTickFrom(*setting.to);
}

void CopiedStream::fail(const std::string& why) const {
    failPlainly("\"" + setting.source + "\": stream " + std::to_string(stream.index) + " " + why);
}

Fraction CopiedStream::secondsOf(int64_t ticks) const {
    const AVRational base = stream.time_base;
    return makeFraction(Wide{ticks} * base.num, base.den).value_or(Fraction(ticks));
}

/// The first tick at or after a time.
int64_t CopiedStream::firstTickFrom(const Fraction& seconds) const {
    const AVRational base = stream.time_base;
    const Wide top = Wide{seconds.numerator} * base.den;
    const Wide bottom = Wide{seconds.denominator} * base.num;
    const Wide down = top / bottom - (top % bottom < 0 ? 1 : 0);
    constexpr Wide furthest = Wide{1} << 62;
    return static_cast<int64_t>(
        std::clamp<Wide>(down * bottom == top ? down : down + 1, -furthest, furthest));
}

Fraction CopiedStream::tickBefore(const Fraction& seconds) const {
    const int64_t tick = firstTickFrom(seconds);
    return secondsOf(tick) > seconds ? secondsOf(tick - 1) : secondsOf(tick);
}

void CopiedStream::refuseHidden() const {
    refuse(setting.source, "stream " + std::to_string(stream.index) +
                               " begins with hidden pictures, which " +
                               setting.container.extension + " cannot hide; .mp4 and .mov can");
}

void CopiedStream::add(PacketHandle packet) {
    if (hasEnded())
        return;
    if (packet->duration < 0 || packet->duration > INT32_MAX)
        packet->duration = 0; // of a damaged file, and more than a file holds
    requireSameHeaders(*packet);
    requireNear(*packet);
    if (setting.joins && !ordered) {
        setting.joined.move(*packet, stream.time_base, place);
        requireNear(*packet);
    }
    arriving.push_back(std::move(packet));
    if (started)
        settle();
}

void CopiedStream::close() {
    closed = true;
    settle();
    beyond.clear();
}

void CopiedStream::forget() {
    arriving.clear();
    beyond.clear();
    leaving.clear();
    lastDts = AV_NOPTS_VALUE;
    closed = false;
    past = false;
    begun = false;
    shown = false;
    extra = 0;
    cut = true;
    met = {};
}

// A file has room for one set of headers.
void CopiedStream::requireSameHeaders(const AVPacket& packet) const {
    const AVCodecParameters& codec = *stream.codecpar;
    for (int i = 0; i < packet.side_data_elems; ++i) {
        const AVPacketSideData& side = packet.side_data[i];
        const auto size = static_cast<size_t>(side.size);
        if (side.type == AV_PKT_DATA_NEW_EXTRADATA && codec.codec_id != AV_CODEC_ID_FLAC &&
            (size != static_cast<size_t>(codec.extradata_size) ||
             std::memcmp(side.data, codec.extradata, size) != 0))
            fail("changes its headers, of which a copy holds one set");
    }
}

// Of a damaged file, or one that was made to do harm.
void CopiedStream::requireNear(const AVPacket& packet) const {
    for (const int64_t time : {packet.pts, packet.dts}) {
        if (time != AV_NOPTS_VALUE &&
            !(isNear(time) && isNear(av_rescale_q(time, stream.time_base, ticks()))))
            fail("has a time that no clip holds, at byte " + std::to_string(packet.pos));
    }
}

// Other containers do not store when pictures are decoded.
void CopiedStream::requireReadable(const AVPacket& packet) const {
    const bool tooFar = pictures && packet.pts - packet.dts > mostShownAhead;
    const bool pauses = lastGiven != AV_NOPTS_VALUE && packet.dts - lastGiven > mostBetween;
    if (!setting.container.mp4 || !(tooFar || pauses))
        return;
    const auto seconds = [&](int64_t tick) {
        return toText(makeFraction(Wide{tick} * ticks().num, ticks().den).value_or(Fraction(tick)));
    };
    fail((tooFar ? "decodes what it shows at " + seconds(packet.pts) + " s of the copy at "
                 : "pauses from " + seconds(lastGiven) + " s of the copy to ") +
         seconds(packet.dts) + " s, longer than " + setting.container.extension +
         " can say in its ticks; Matroska can");
}

bool CopiedStream::isProbed() const {
    return closed || arriving.size() >= (pictures ? reorderReach : 1);
}

bool CopiedStream::lacksTimes() const {
    if (!pictures)
        return false;
    bool rises = true;
    bool decoded = false;
    int64_t before = AV_NOPTS_VALUE;
    for (const PacketHandle& packet : arriving) {
        if (packet->pts == AV_NOPTS_VALUE || packet->pts < packet->dts)
            return true;
        rises = rises && packet->pts > before;
        before = packet->pts;
        decoded = decoded || packet->dts != AV_NOPTS_VALUE;
    }
    return !decoded && !rises;
}

void CopiedStream::start() {
    started = true;
    settle();
}

void CopiedStream::settle() {
    if (!started)
        return;
    if (ordered) {
        for (; !arriving.empty(); arriving.pop_front()) {
            if (!ordered->giveTimes(*arriving.front(), numbered++))
                continue;
            requireNear(*arriving.front());
            select(std::move(arriving.front()));
        }
        return;
    }
    for (PacketHandle& packet : arriving)
        requireTimes(*packet);
    const bool guesses =
        lastDts == AV_NOPTS_VALUE && !arriving.empty() && arriving.back()->dts == AV_NOPTS_VALUE;
    if (guesses && !closed && arriving.size() < mostGuessed)
        return;
    fillDecodingTimes();
    for (; !arriving.empty(); arriving.pop_front())
        select(std::move(arriving.front()));
}

/// A time to be shown for a packet that has none.
void CopiedStream::requireTimes(AVPacket& packet) const {
    if (pictures) {
        if (packet.pts == AV_NOPTS_VALUE)
            fail("has a packet without a time, at byte " + std::to_string(packet.pos));
        return;
    }
    if (packet.pts == AV_NOPTS_VALUE)
        packet.pts = packet.dts != AV_NOPTS_VALUE ? packet.dts : lastEnd;
    if (packet.dts == AV_NOPTS_VALUE)
        packet.dts = packet.pts;
}

// Matroska stores no decoding times, and FFmpeg guesses them only once it knows how pictures are
// reordered. So the first packets get theirs from the first that has one.
void CopiedStream::fillDecodingTimes() {
    for (std::size_t i = arriving.size(); i-- > 1;) {
        AVPacket& packet = *arriving[i - 1];
        const AVPacket& after = *arriving[i];
        if (packet.dts == AV_NOPTS_VALUE && after.dts != AV_NOPTS_VALUE &&
            lastDts == AV_NOPTS_VALUE)
            packet.dts = std::min(after.dts - std::max<int64_t>(packet.duration, 1), packet.pts);
    }
    for (const PacketHandle& packet : arriving) {
        const bool follows = lastDts != AV_NOPTS_VALUE;
        if (packet->dts == AV_NOPTS_VALUE)
            packet->dts = packet->pts;
        if (follows && packet->dts <= lastDts)
            packet->dts = lastDts + 1;
        if (packet->pts < packet->dts) {
            if (pictures)
                fail("has times that go back, at " + toText(secondsOf(packet->pts)) + " s");
            packet->pts = packet->dts;
        }
        lastDts = packet->dts;
        lastEnd = packet->pts + packet->duration;
    }
}

bool CopiedStream::begins(const AVPacket& packet) {
    if (!setting.from)
        return true;
    const bool key = isKey(packet) && !isHidden(packet);
    if (pictures && leading)
        return key && findsKey(packet);
    return packet.pts >= firstTick && (!pictures || key);
}

bool CopiedStream::findsKey(const AVPacket& packet) {
    const Fraction time = secondsOf(packet.pts);
    if (time == *setting.from || (time > *setting.from && !cut))
        return true;
    if (time < *setting.from)
        met.before = time;
    else if (!met.after)
        met.after = time;
    return false;
}

void CopiedStream::select(PacketHandle packet) {
    if (past)
        return;
    if (!begun && !begins(*packet)) {
        cut = true;
        return;
    }
    begun = true;
    if (setting.from && cut && packet->pts < firstTick)
        return; // shown before the key picture, and made of pictures before it
    const bool hidden = isHidden(*packet);
    const bool inFront = hidden && (!shown || packet->pts < lastShown);
    if (inFront && !setting.container.mp4) {
        if (pictures)
            refuseHidden();
        if (!setting.container.isMatroska())
            return;
        packet->flags &= ~AV_PKT_FLAG_DISCARD; // the run-in, which Matroska states
    }
    const bool after = setting.to && packet->pts >= endTick;
    if (after || (hidden && !inFront)) {
        if (after && packet->dts >= endTick) {
            past = true;
            beyond.clear();
            return;
        }
        beyond.push_back(std::move(packet));
        return;
    }
    if (!hidden) {
        lastShown = shown ? std::max(lastShown, packet->pts) : packet->pts;
        shown = true;
    }
    extra += static_cast<int64_t>(beyond.size());
    keyFlagged = keyFlagged || std::any_of(beyond.begin(), beyond.end(),
                                           [](const PacketHandle& one) { return isKey(*one); });
    std::move(beyond.begin(), beyond.end(), std::back_inserter(leaving));
    beyond.clear();
    leaving.push_back(std::move(packet));
    keyFlagged = keyFlagged || isKey(*leaving.back());
}

bool CopiedStream::isReady() const {
    return hasEnded() || leaving.size() >= (pictures ? reorderReach : 2);
}

Fraction CopiedStream::begin() const {
    int64_t first = AV_NOPTS_VALUE;
    for (const PacketHandle& packet : leaving) {
        if (!isHidden(*packet) && (first == AV_NOPTS_VALUE || packet->pts < first))
            first = packet->pts;
    }
    if (runIn() > 0) // from the first packet on, also where it is nothing but that
        first = leaving.front()->pts;
    if (first == AV_NOPTS_VALUE)
        return Fraction(0);
    const Fraction time = secondsOf(first - shift);
    if (runIn() == 0)
        return time;
    const Fraction heard = time + Fraction(runIn(), ticks().den);
    const Fraction tick = secondsOf(1); // to which the time was rounded, and the run-in was not
    return heard < tick && -heard < tick ? Fraction(0) : heard;
}

int CopiedStream::runIn() const {
    return leaving.empty() ? 0 : times.runInOf(*leaving.front());
}

void CopiedStream::shiftBy(const Fraction& origin) {
    const AVRational base = stream.time_base;
    shift = roundedTicks(origin, base.num, base.den);
    const bool known = stream.start_time != AV_NOPTS_VALUE && stream.duration > 0 && !setting.to;
    if (setting.tellsDecodingLengths)
        times.setEnd(known ? av_sat_sub64(av_sat_add64(stream.start_time, stream.duration), shift)
                           : AV_NOPTS_VALUE);
}

// MP4 without a table of key pictures is one in which every picture is one.
bool CopiedStream::actsAsKey(const AVPacket& packet) const {
    return isKey(packet) || !keyFlagged;
}

/// Whether the first of those that wait is a key picture that seems to last to the end of the
/// track, as far as that is known.
bool CopiedStream::lastsToEnd() const {
    const AVPacket& key = *leaving.front();
    if (!actsAsKey(key) || leaving.size() < 2)
        return false;
    const AVPacket& after = *leaving[1];
    const int64_t length = (actsAsKey(after) ? after.pts : after.dts) - key.dts; // it may move too
    return std::none_of(leaving.begin() + 1, leaving.end(),
                        [&](const PacketHandle& one) { return one->pts >= key.pts + length; });
}

// A run of key pictures, and the packet behind it, decide on the decoding of the first.
void CopiedStream::decodeKeyLater() {
    std::size_t last = 0;
    while (last + 1 < leaving.size() && actsAsKey(*leaving[last]))
        ++last;
    int64_t dts = leaving[last]->dts;
    for (std::size_t i = last; i-- > 0;)
        dts = std::max(leaving[i]->dts, earliestOfKey(leaving[i]->pts, leaving[i + 1]->pts, dts));
    leaving.front()->dts = dts;
}

// Where a track seems to end matters to MP4 alone, and takes as many packets to see as it is long.
// An even rate is to stay even: most tracks have one such key picture at most.
bool CopiedStream::mayGo() {
    if (leaving.empty() || (leaving.size() == 1 && !hasEnded()))
        return false;
    if (!pictures || !setting.container.mp4 || !lastsToEnd())
        return true;
    if (!hasEnded() && leaving.size() < mostHeld)
        return false;
    if (++keysAtEnd >= keysThatEndATrack)
        decodeKeyLater();
    return true;
}

PacketHandle CopiedStream::next() {
    if (!mayGo())
        return nullptr;
    PacketHandle packet = std::move(leaving.front());
    leaving.pop_front();
    packet->pts -= shift;
    packet->dts -= shift;
    requireNear(*packet);
    times.give(*packet, leaving.empty() && hasEnded());
    requireReadable(*packet);
    lastGiven = packet->dts;
    return packet;
}

} // namespace tio::ffmpeg::detail
