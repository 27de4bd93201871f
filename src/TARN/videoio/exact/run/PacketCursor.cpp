#include "exact/run/PacketCursor.h"

#include "base/hash.h"

#include <TARN/videoio/Exception.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

// After a seek into the middle of a packet, what comes first may be in no index; but not for long.
constexpr int toleratedStrangers = 64;

// How many packets earlier to begin where a seek to a packet's own place comes too late, because
// the parser needs the end of what comes before.
constexpr uint32_t packetsBefore = 4;

uint64_t hashOf(const AVPacket& packet) {
    return hashBytes(packet.data, static_cast<size_t>(packet.size));
}

} // namespace

PacketCursor::PacketCursor(PacketSource& source, const IndexData& ofStream)
    : packets(source), index(ofStream), methods(methodsFor(*source.format().iformat)) {
    place(source.isAtStart());
}

// What led to the packet asked for, and not past it, most often over many real files. MP4 counts
// decoding times in some files and presentation times in others; MPEG-TS and MPEG-PS guess times
// by a search in the bytes, so that their packets' own places serve better.
std::vector<PacketCursor::Method> PacketCursor::methodsFor(const AVInputFormat& format) {
    const std::string_view name = format.name;
    if (name.substr(0, 4) == "mov," || name.substr(0, 8) == "matroska")
        return {{Way::Pts}, {Way::Dts}};
    if (name == "mpegts")
        return {{Way::Byte}, {Way::Dts}, {Way::ByteBefore}};
    if (name == "mpeg")
        return {{Way::Dts}, {Way::Byte}, {Way::ByteBefore}};
    if ((format.flags & AVFMT_NOTIMESTAMPS) != 0)
        return {{Way::Byte}, {Way::ByteBefore}};
    // Those of bare streams, whose packets have no times, say so or have FFmpeg's own index.
    if ((format.flags & AVFMT_GENERIC_INDEX) != 0 && (format.flags & AVFMT_NO_BYTE_SEEK) == 0)
        return {{Way::Dts}, {Way::Pts}, {Way::Byte}, {Way::ByteBefore}};
    return {{Way::Dts}, {Way::Pts}};
}

void PacketCursor::startOver() {
    packets.reopen();
    next = 0;
    pending = false;
    place(true);
}

bool PacketCursor::isPlaced() const noexcept {
    return placed && stepsWhenPlaced == packets.stepCount();
}

void PacketCursor::place(bool known) noexcept {
    placed = known;
    stepsWhenPlaced = packets.stepCount();
}

void PacketCursor::rewind() {
    const bool there = isPlaced() && next == 0;
    if (!there && !(packets.comesBackAsOpened() && seekBackToStart()))
        startOver();
}

bool PacketCursor::goTo(uint32_t number) {
    if (isPlaced() && next == number)
        return true;
    if (number == 0 ? seekBackToStart() : seekTo(number))
        return true;
    startOver();
    return readUpTo(number);
}

// A stream that can only be read from its start on is opened again instead.
bool PacketCursor::seekBackToStart() {
    if (index.packetCount() == 0)
        return false;
    try {
        return seekTo(0);
    } catch (const Exception& failure) {
        for (const int stopped : {AVERROR(ETIMEDOUT), AVERROR_EXIT, AVERROR(ENOMEM)})
            if (failure.code() == stopped)
                throw;
        return false;
    }
}

bool PacketCursor::seekTo(uint32_t number) {
    for (Method& method : methods) {
        if (seekBy(method.way, number) && landsBefore(number) && readUpTo(number)) {
            std::stable_sort(methods.begin(), methods.end(), [](const Method& a, const Method& b) {
                return a.failures < b.failures;
            });
            return true;
        }
        ++method.failures;
    }
    return false;
}

bool PacketCursor::seekBy(Way way, uint32_t number) {
    place(false);
    const int64_t position = way == Way::ByteBefore ? byteBefore(number) : index.positions[number];
    const int64_t time = way == Way::Pts ? index.pts[number] : index.dtsOfKey(number);
    if (way == Way::Byte || way == Way::ByteBefore)
        return position >= 0 && packets.seekToByte(position);
    return time != AV_NOPTS_VALUE && packets.seekToTime(time);
}

int64_t PacketCursor::byteBefore(uint32_t number) const {
    const int64_t own = index.positions[number];
    for (uint32_t earlier = number > packetsBefore ? number - packetsBefore : 0; own > 0;
         --earlier) {
        const int64_t position = index.positions[earlier];
        if (position >= 0 && position < own)
            return position;
        if (earlier == 0)
            break;
    }
    return -1;
}

// Finds out which packet a seek led to. A late landing is no use; an early one only costs reading.
bool PacketCursor::landsBefore(uint32_t number) {
    for (int strangers = 0; strangers < toleratedStrangers && packets.read(); ++strangers) {
        const int64_t found = locate(number);
        if (found > number)
            return false;
        if (found >= 0) {
            next = static_cast<uint32_t>(found);
            pending = true;
            place(true);
            return true;
        }
    }
    return false;
}

bool PacketCursor::readUpTo(uint32_t number) {
    while (next < number)
        if (advance() != Step::Packet)
            return false;
    return true;
}

// The number of the packet that the source stands on; -1 when there is none like it, or more than
// one. Looks near a place first: that is where it is as a rule.
int64_t PacketCursor::locate(uint32_t near) const {
    const AVPacket& packet = packets.packet();
    const uint64_t hash = hashOf(packet);
    const auto count = int64_t{index.packetCount()};
    int64_t found = -1;
    for (int64_t distance = 0; distance < count; ++distance) {
        for (const int64_t candidate : {near - distance, near + distance}) {
            if (candidate < 0 || candidate >= count || candidate == found)
                continue;
            const auto at = static_cast<size_t>(candidate);
            if (index.hashes[at] != hash)
                continue;
            const bool placesKnown = index.positions[at] >= 0 && packet.pos >= 0;
            if (placesKnown && index.positions[at] != packet.pos)
                continue;
            if (index.pts[at] == packet.pts && (placesKnown || packet.pts != AV_NOPTS_VALUE))
                return candidate;
            if (found >= 0)
                return -1; // two alike: the next packet may show which it is
            found = candidate;
        }
    }
    return found;
}

PacketCursor::Step PacketCursor::advance() {
    if (pending && isPlaced()) {
        pending = false;
        ++next;
        return Step::Packet;
    }
    const bool wasPlaced = isPlaced();
    pending = false;
    place(false); // reading may throw on its way
    const bool more = wasPlaced && packets.read();
    const bool atEnd = wasPlaced && !more && next == index.packetCount();
    place(atEnd ||
          (more && next < index.packetCount() && hashOf(packets.packet()) == index.hashes[next]));
    if (atEnd)
        return Step::End;
    if (!placed)
        return Step::Lost;
    ++next;
    return Step::Packet;
}

} // namespace tio::ffmpeg::detail
