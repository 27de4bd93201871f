#include "exact/PacketScan.h"

#include "base/checks.h"
#include "base/hash.h"
#include "base/ticks.h"
#include "bitstream/PacketInspector.h"
#include "ffmpeg_compat.h"
#include "input/SeekingIndex.h"

#include <algorithm>
#include <numeric>

namespace tio::ffmpeg::detail {

namespace {

// Bits that hold a packet's temporal layer until the scan knows which is the highest.
constexpr unsigned layerShift = 5;

// Up to here a packet's number fits the columns of the index, with room for what is added to it.
constexpr size_t mostPackets = UINT32_MAX - 1024;

/// In ticks; 0 where the container says nothing of it.
int64_t usualDistance(const AVStream& stream) {
    const AVRational rate =
        stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
    if (rate.num <= 0 || rate.den <= 0 || stream.time_base.num <= 0)
        return 0;
    return std::max<int64_t>(1, av_rescale_q(1, av_inv_q(rate), stream.time_base));
}

/// Where the pictures end, in ticks, if the container says so.
int64_t statedEnd(const AVFormatContext& format, const AVStream& stream) {
    if (stream.start_time != AV_NOPTS_VALUE && stream.duration > 0 &&
        format.duration_estimation_method != AVFMT_DURATION_FROM_BITRATE)
        return av_sat_add64(stream.start_time, stream.duration);
    // Matroska has it as a tag of the track.
    const AVDictionaryEntry* tag = av_dict_get(stream.metadata, "DURATION", nullptr, 0);
    int64_t end = 0;
    if (tag == nullptr || av_parse_time(&end, tag->value, 1) < 0)
        return AV_NOPTS_VALUE;
    return av_rescale_q(end, {1, AV_TIME_BASE}, stream.time_base);
}

/// The two latest times of pictures, in ticks.
struct LatestTimes {
    int64_t last = AV_NOPTS_VALUE;
    int64_t before = AV_NOPTS_VALUE;

    /// @returns whether it is the last one now
    bool add(int64_t pts) {
        if (pts < last) {
            before = std::max(before, pts);
            return false;
        }
        if (pts > last)
            before = last;
        last = pts;
        return true;
    }
};

/// Whether the lengths of packets are those of their pictures. MP4 tells when the next packet is
/// decoded, and some releases of FFmpeg hand that on. Pictures are shown as long where packets come
/// in the order of their pictures, or all are equally long.
class PacketLengths {
public:
    void add(const AVPacket& packet) {
        const int64_t waits = av_sat_sub64(packet.pts, packet.dts);
        if (any) {
            lengthsDiffer = lengthsDiffer || packet.duration != length;
            waitsDiffer = waitsDiffer || waits != wait;
        }
        any = true;
        length = packet.duration;
        wait = waits;
    }

    bool areThoseOfPictures() const { return !lengthsDiffer || !waitsDiffer; }

private:
    bool any = false;
    bool lengthsDiffer = false;
    bool waitsDiffer = false;
    int64_t length = 0;
    int64_t wait = 0; // between decoding and showing
};

/// For how long the last picture is shown where its packet does not say it.
int64_t lengthOfLast(const AVFormatContext& format, const AVStream& stream,
                     const LatestTimes& latest) {
    const int64_t end = statedEnd(format, stream);
    if (latest.last != AV_NOPTS_VALUE && end != AV_NOPTS_VALUE && end > latest.last)
        return av_sat_sub64(end, latest.last);
    if (const int64_t usual = usualDistance(stream); usual > 0)
        return usual;
    return latest.before != AV_NOPTS_VALUE ? av_sat_sub64(latest.last, latest.before) : 1;
}

uint8_t flagsOf(const AVPacket& packet, const PacketFacts& facts) {
    unsigned flags = 0;
    flags |= (packet.flags & AV_PKT_FLAG_KEY) != 0 ? unsigned{IndexData::key} : 0u;
    flags |= (packet.flags & AV_PKT_FLAG_DISCARD) != 0 ? unsigned{IndexData::discarded} : 0u;
    flags |= facts.hidden ? unsigned{IndexData::hidden} : 0u;
    flags |= facts.disposable ? unsigned{IndexData::disposable} : 0u;
    return static_cast<uint8_t>(flags | facts.layer << layerShift);
}

/// Only what nothing refers to in the highest layer is needed by nobody.
void dropLayers(std::vector<uint8_t>& flags, unsigned highest) {
    constexpr unsigned flagMask = (1u << layerShift) - 1;
    for (uint8_t& flag : flags) {
        const bool needed = flag >> layerShift != static_cast<int>(highest);
        flag = static_cast<uint8_t>(flag & flagMask &
                                    ~(needed ? unsigned{IndexData::disposable} : 0u));
    }
}

void addPacket(IndexData& index, const AVPacket& packet, const PacketFacts& facts) {
    if (index.flags.size() >= mostPackets)
        failPlainly("The stream has too many packets for an index");
    if (index.flags.empty() || (packet.flags & AV_PKT_FLAG_KEY) != 0) {
        index.keys.push_back(index.packetCount());
        index.keyDts.push_back(packet.dts);
    }
    index.pts.push_back(packet.pts);
    index.positions.push_back(packet.pos);
    index.hashes.push_back(hashBytes(packet.data, static_cast<size_t>(packet.size)));
    index.flags.push_back(flagsOf(packet, facts));
}

/// Whether a packet brings what all that follow need as well, and what its container gives but
/// once.
bool bringsPalette(const AVPacket& packet) {
    return std::any_of(
        packet.side_data, packet.side_data + packet.side_data_elems,
        [](const AVPacketSideData& data) { return data.type == AV_PKT_DATA_PALETTE; });
}

/// Leaves the start of the stream as the only place to decode from.
void dropLaterKeys(IndexData& index) {
    if (!index.keys.empty()) {
        index.keys.resize(1);
        index.keyDts.resize(1);
    }
}

} // namespace

PacketScan scanPackets(PacketSource& source, int stream, ProgressReport& progress) {
    PacketScan scan;
    IndexData& index = scan.index;
    index.stream = stream;
    index.codec = source.stream().codecpar->codec_id;
    index.timeBase = source.stream().time_base;
    PacketInspector inspector(*source.stream().codecpar);
    AVIOContext* io = source.format().pb;
    const int64_t total = io != nullptr ? std::max<int64_t>(avio_size(io), 0) : 0;
    SeekingIndex seeking;
    const bool seeksByPts = (source.format().iformat->flags & AVFMT_SEEK_TO_PTS) != 0;
    LatestTimes latest;
    PacketLengths lengths;
    bool palette = false;
    while (source.read()) {
        const AVPacket& packet = source.packet();
        addPacket(index, packet, inspector.inspect(packet));
        seeking.record({packet.pts, packet.dts, (packet.flags & AV_PKT_FLAG_DISCARD) != 0},
                       seeksByPts);
        palette = palette || bringsPalette(packet);
        scan.damaged = scan.damaged || (packet.flags & AV_PKT_FLAG_CORRUPT) != 0;
        if (!index.hasFlag(index.packetCount() - 1, IndexData::discarded) && latest.add(packet.pts))
            index.lastTicks = packet.duration;
        lengths.add(packet);
        progress.tell(IndexProgress::Step::Packets, std::max<int64_t>(packet.pos, 0), total);
    }
    index.maxPtsDtsDifference = seeking.maxPtsDtsDifference;
    index.frameTicks = std::max<int64_t>(1, usualDistance(source.stream()));
    const bool told = !compat::isMp4Family(source.format()) || lengths.areThoseOfPictures();
    if (index.lastTicks <= 0 || !told)
        index.lastTicks = lengthOfLast(source.format(), source.stream(), latest);
    dropLayers(index.flags, inspector.highestLayer());
    if (palette)
        dropLaterKeys(index);
    scan.damaged = scan.damaged || inspector.hasDamage();
    scan.fieldsApart = inspector.hasFieldsApart();
    index.notes.mayLeaveOut = inspector.mayLeaveOut();
    return scan;
}

bool orderByTimes(IndexData& index) {
    std::vector<uint32_t> shown;
    for (uint32_t packet = 0; packet < index.packetCount(); ++packet)
        if ((index.flags[packet] & (IndexData::discarded | IndexData::hidden)) == 0)
            shown.push_back(packet);
    const auto earlier = [&](uint32_t a, uint32_t b) { return index.pts[a] < index.pts[b]; };
    std::sort(shown.begin(), shown.end(), earlier);
    const auto together = [&](uint32_t a, uint32_t b) { return index.pts[a] == index.pts[b]; };
    const bool apart = std::adjacent_find(shown.begin(), shown.end(), together) == shown.end();
    const bool allTimed = shown.empty() || index.pts[shown.front()] != AV_NOPTS_VALUE;
    index.packets = std::move(shown);
    return allTimed && apart;
}

void fillTimes(IndexData& index) {
    const auto count = index.packets.size();
    std::vector<int64_t> times(count, AV_NOPTS_VALUE);
    size_t firstKnown = count;
    bool complete = true;
    for (size_t frame = count; frame-- > 0;) {
        const bool again = frame > 0 && index.packets[frame] == index.packets[frame - 1];
        times[frame] = again ? AV_NOPTS_VALUE : index.pts[index.packets[frame]];
        if (times[frame] != AV_NOPTS_VALUE)
            firstKnown = frame;
        else
            complete = false;
    }
    index.ownTimes.clear();
    if (complete)
        return;
    // Where the first ones have none, back from the first that has one.
    const auto lead = static_cast<uint64_t>(firstKnown) * static_cast<uint64_t>(index.frameTicks);
    const int64_t known = firstKnown < count ? times[firstKnown] : static_cast<int64_t>(lead);
    const int64_t step = index.frameTicks; // any number, in an index file that was tampered with
    int64_t last = wrappingDifference(known, wrappingSum(static_cast<int64_t>(lead), step));
    for (int64_t& time : times) {
        if (time == AV_NOPTS_VALUE)
            time = wrappingSum(last, step);
        last = time;
    }
    index.ownTimes = std::move(times);
}

} // namespace tio::ffmpeg::detail
