#include "exact/write/fragment/FragmentWriter.h"

#include "base/checks.h"
#include "exact/write/ClipAssembly.h"
#include "exact/write/refusal.h"

#include <algorithm>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

// Seconds that may wait in memory until it is known when the other track begins.
const Fraction mostAhead{10};

// Seconds of sound that make a fragment where no picture comes.
constexpr int64_t mostSound = 2;

} // namespace

FragmentWriter::FragmentWriter(const ClipPlan& clipPlan, const ClipWriterOptions& clipOptions,
                               const ClipTimes& clipTimes, std::shared_ptr<ByteSink> taker,
                               std::function<void()> whenWritten, std::string clip)
    : plan(clipPlan),
      options(clipOptions),
      times(clipTimes),
      sink(std::move(taker)),
      onWritten(std::move(whenWritten)),
      name(std::move(clip)),
      channel(*sink, name),
      muxer(*plan.container, name) {}

void FragmentWriter::openSound(const AVCodecContext& encoder, const Fraction& begin) {
    sound.encoder = &encoder;
    soundBegin = static_cast<int64_t>(roundedProduct(begin, encoder.sample_rate));
}

bool FragmentWriter::wantsKey(const Fraction& time) const {
    if (!lastKey)
        return true;
    // As if the picture lasted as long as the one before.
    const auto step = difference(time, lastTime);
    const auto end = step ? sum(time, *step) : std::nullopt;
    const auto length = end ? difference(*end, *lastKey) : std::nullopt;
    return !length || *length > 1;
}

void FragmentWriter::note(const Fraction& time, bool key, bool afterPause) {
    lastTime = time;
    if (key)
        lastKey = time;
    if (afterPause)
        pauses.push_back(static_cast<int64_t>(times.count()) - 1);
}

void FragmentWriter::requirePicturesMayWait(const Fraction& until) const {
    if (begun || plan.audioCodec == nullptr || sound.taken > 0 || times.count() == 0)
        return;
    if (difference(until, times.first()).value_or(until) > mostAhead)
        refuse(name, "in fragments, sound has to begin before " + toText(mostAhead) +
                         " s of pictures are written");
}

void FragmentWriter::requireSoundMayWait(const Fraction& until) const {
    if (!begun && plan.codec != nullptr && times.count() == 0 && until > mostAhead)
        refuse(name, "in fragments, pictures have to begin before " + toText(mostAhead) +
                         " s of sound are written");
}

PacketHandle FragmentWriter::keep(AVPacket& packet) const {
    PacketHandle kept(av_packet_alloc());
    checkResult(kept ? 0 : AVERROR(ENOMEM), {"FragmentWriter", 10}, name);
    av_packet_move_ref(kept.get(), &packet);
    return kept;
}

// A key picture begins a group if all pictures before it have come: none after it is shown earlier.
void FragmentWriter::addPicture(AVPacket& packet) {
    const bool key = (packet.flags & AV_PKT_FLAG_KEY) != 0 && packet.pts == pictures.taken;
    if (key)
        groups.push_back(pictures.taken);
    ++pictures.taken;
    pictures.packets.push_back(keep(packet));
    while (groups.size() > 1 && mayBegin()) // the one before is complete
        writeGroup(false);
}

void FragmentWriter::addSound(AVPacket& packet) {
    sound.packets.push_back(keep(packet));
    ++sound.taken;
    while (groups.size() > 1 && mayBegin())
        writeGroup(false);
    const bool alone = plan.codec == nullptr;
    if ((begun || alone) && soundLength() >= (alone ? 1 : mostSound))
        writeFragment({}, false);
}

/// Whole seconds of sound that wait.
int64_t FragmentWriter::soundLength() const {
    if (sound.packets.empty())
        return 0;
    return (sound.packets.back()->pts - sound.packets.front()->pts) / sound.encoder->sample_rate;
}

bool FragmentWriter::mayBegin() const {
    return begun || plan.audioCodec == nullptr || !sound.packets.empty();
}

void FragmentWriter::begin(bool last) {
    begun = true;
    int64_t scale = 1;
    const Fraction first = pictures.encoder != nullptr ? times.first() : Fraction(0);
    if (pictures.encoder != nullptr) {
        scale = times.scale();
        pictures.stream = muxer.addPictures(*pictures.encoder, options, scale);
        int64_t ahead = pictures.encoder->has_b_frames;
        for (std::size_t i = 0; i < pictures.packets.size(); ++i)
            ahead = std::max(ahead, static_cast<int64_t>(i) - pictures.packets[i]->pts);
        const int64_t group = groups.size() > 1 ? groups[1] : pictures.taken;
        shown.emplace(times, scale, !plan.container->isMatroska());
        shown->begin(ahead, last ? pictures.taken : group);
    }
    if (sound.encoder != nullptr)
        sound.stream = muxer.addSound(*sound.encoder, options);
    const int rate = sound.encoder != nullptr ? sound.encoder->sample_rate : 1;
    const int64_t fine = scale > 1 ? scale : rate;
    const Fraction heard(soundBegin, rate);
    constexpr int64_t milliseconds = 1000;
    muxer.begin(
        channel, options,
        movieScale(*plan.container, first, heard, fine, finestScale).value_or(milliseconds));
}

/// The group that came first, with the sound up to now.
void FragmentWriter::writeGroup(bool last) {
    if (!begun)
        begin(last);
    using Next = FragmentTimes::Next;
    const int64_t first = pictures.given;
    const int64_t end = last ? pictures.taken : groups[1];
    const auto isPause = [this](int64_t number) {
        return std::binary_search(pauses.begin(), pauses.end(), number);
    };
    if (first > 0 && isPause(first))
        shown->restart(first);
    std::deque<PacketHandle> group;
    for (; pictures.given < end; ++pictures.given) {
        Next next = Next::Packet;
        if (pictures.given + 1 == end && last)
            next = Next::Nothing;
        else if (pictures.given + 1 == end && isPause(end))
            next = Next::Pause;
        shown->giveTimes(*pictures.packets.front(), pictures.given, next);
        group.push_back(std::move(pictures.packets.front()));
        pictures.packets.pop_front();
    }
    while (!pauses.empty() && pauses.front() < end)
        pauses.pop_front();
    groups.pop_front();
    writeFragment(std::move(group), last);
}

bool FragmentWriter::isSoundFirst(const std::deque<PacketHandle>& group) const {
    if (group.empty() || sound.packets.empty())
        return group.empty();
    const AVRational soundTicks{1, sound.encoder->sample_rate};
    const AVRational pictureTicks{1, static_cast<int>(times.scale())};
    return av_compare_ts(sound.packets.front()->pts + soundBegin, soundTicks, group.front()->dts,
                         pictureTicks) < 0;
}

void FragmentWriter::writeFragment(std::deque<PacketHandle> group, bool last) {
    if (!begun)
        begin(last);
    while (!group.empty() || !sound.packets.empty()) {
        const bool isSound = isSoundFirst(group);
        std::deque<PacketHandle>& from = isSound ? sound.packets : group;
        AVPacket& packet = *from.front();
        if (isSound)
            giveSoundTimes(packet, *sound.encoder, sound.given++, soundBegin, plan.container->mp4);
        muxer.write(packet, isSound ? sound.stream : pictures.stream);
        from.pop_front();
    }
    muxer.endFragment();
    if (!std::exchange(written, true))
        onWritten();
}

void FragmentWriter::finish() {
    while (groups.size() > 1)
        writeGroup(false);
    if (!pictures.packets.empty())
        writeGroup(true);
    if (!sound.packets.empty() || !written)
        writeFragment({}, true);
    muxer.end();
}

} // namespace tio::ffmpeg::detail
