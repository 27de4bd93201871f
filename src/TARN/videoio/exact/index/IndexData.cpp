#include "exact/index/IndexData.h"

#include "base/ticks.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

void IndexData::finish() {
    frameOf.assign(packetCount(), noFrame);
    for (size_t frame = packets.size(); frame-- > 0;) // a packet's first picture is what stays
        frameOf[packets[frame]] = static_cast<uint32_t>(frame);

    shownFrom.clear();
    bool goesBack = false;
    for (int64_t frame = 1; frame < frameCount() && !goesBack; ++frame)
        goesBack = timeOf(frame) < timeOf(frame - 1);
    if (!goesBack)
        return;
    for (int64_t frame = 0; frame < frameCount(); ++frame)
        shownFrom.push_back(frame == 0 ? timeOf(0) : std::max(timeOf(frame), shownFrom.back()));
}

bool IndexData::isOf(const AVStream& candidate) const noexcept {
    return stream == candidate.index && codec == candidate.codecpar->codec_id &&
           av_cmp_q(timeBase, candidate.time_base) == 0;
}

int64_t IndexData::timeOf(int64_t frame) const noexcept {
    const auto at = static_cast<size_t>(frame);
    return ownTimes.empty() ? pts[packets[at]] : ownTimes[at];
}

int64_t IndexData::durationOf(int64_t frame) const noexcept {
    if (frame + 1 == frameCount())
        return lastTicks;
    const int64_t duration = wrappingDifference(timeOf(frame + 1), timeOf(frame));
    return duration > 0 ? duration : frameTicks;
}

int64_t IndexData::frameAt(int64_t ticks) const noexcept {
    int64_t from = 0;
    int64_t to = frameCount(); // the first frame that is later lies in [from, to]
    while (from < to) {
        const int64_t middle = from + (to - from) / 2;
        const int64_t time =
            shownFrom.empty() ? timeOf(middle) : shownFrom[static_cast<size_t>(middle)];
        if (time <= ticks)
            from = middle + 1;
        else
            to = middle;
    }
    return from - 1;
}

int64_t IndexData::frameAfter(int64_t last, uint32_t packet) const noexcept {
    if (packet >= packetCount() || frameOf[packet] == noFrame)
        return -1;
    // Where one packet gives two pictures, they come soon after each other.
    constexpr int64_t searched = 64;
    const int64_t first = frameOf[packet];
    const int64_t end = std::min(frameCount(), first + searched);
    for (int64_t frame = first; frame < end; ++frame)
        if (frame > last && packets[static_cast<size_t>(frame)] == packet)
            return frame;
    return -1;
}

uint32_t IndexData::entryFor(int64_t frame, uint32_t limit,
                             const EntryNotes& learned) const noexcept {
    const uint32_t target = packets[static_cast<size_t>(frame)];
    const uint32_t end = limit > target ? target + 1 : limit;
    auto entry = std::lower_bound(keys.begin(), keys.end(), end);
    while (entry != keys.begin()) {
        const uint32_t packet = *--entry;
        // Pictures that lead a key picture need what comes before it. One that gives no picture
        // has no place in the order, and may be tried.
        const bool leads = frameOf[packet] != noFrame && frameOf[packet] > frame;
        const auto bad = learned.cleanFrom.find(packet);
        if (!leads && (bad == learned.cleanFrom.end() || bad->second <= frame))
            return packet;
    }
    return 0;
}

int64_t IndexData::dtsOfKey(uint32_t packet) const noexcept {
    const auto entry = std::lower_bound(keys.begin(), keys.end(), packet);
    if (entry == keys.end() || *entry != packet)
        return AV_NOPTS_VALUE;
    return keyDts[static_cast<size_t>(entry - keys.begin())];
}

int64_t IndexData::byteCount() const noexcept {
    const auto bytesOf = [](const auto& column) {
        return static_cast<int64_t>(column.size() * sizeof column[0]);
    };
    return int64_t{sizeof *this} + bytesOf(pts) + bytesOf(positions) + bytesOf(hashes) +
           bytesOf(flags) + bytesOf(keys) + bytesOf(keyDts) + bytesOf(packets) + bytesOf(ownTimes) +
           bytesOf(checksums) + bytesOf(frameOf) + bytesOf(shownFrom);
}

} // namespace tio::ffmpeg::detail
