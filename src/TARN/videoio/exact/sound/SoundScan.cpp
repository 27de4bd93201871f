#include "exact/sound/SoundScan.h"

#include "base/checks.h"
#include "base/hash.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

namespace {

// Up to here a packet's number fits the columns of the index.
constexpr size_t mostPackets = UINT32_MAX - 1024;

// Decoding may start at every packet of a sound stream, whatever its container says of keys.
void addPacket(IndexData& index, const AVPacket& packet) {
    if (index.flags.size() >= mostPackets)
        failPlainly("The stream has too many packets for an index");
    index.keys.push_back(index.packetCount());
    index.keyDts.push_back(packet.dts);
    index.pts.push_back(packet.pts);
    index.positions.push_back(packet.pos);
    index.hashes.push_back(hashBytes(packet.data, static_cast<size_t>(packet.size)));
    index.flags.push_back(IndexData::key);
}

// Files of sound alone, such as WAV, MP3 or FLAC: demuxers make their times up from what the
// packets last, and lose a part of a tick with each. Ogg is one of them by its flags, but has
// times.
bool hasNoTimes(const AVInputFormat& format) {
    return (format.flags & AVFMT_GENERIC_INDEX) != 0 && (format.flags & AVFMT_TS_DISCONT) == 0;
}

} // namespace

SoundIndexData scanSound(PacketSource& source, int stream, ProgressReport& progress) {
    SoundIndexData index;
    const AVCodecParameters& parameters = *source.stream().codecpar;
    index.packets.stream = stream;
    index.packets.codec = parameters.codec_id;
    index.packets.timeBase = source.stream().time_base;
    index.isSteady = hasNoTimes(*source.format().iformat);
    index.format.rate = parameters.sample_rate;
    AVIOContext* io = source.format().pb;
    const int64_t total = io != nullptr ? std::max<int64_t>(avio_size(io), 0) : 0;
    while (source.read()) {
        addPacket(index.packets, source.packet());
        progress.tell(IndexProgress::Step::Packets, std::max<int64_t>(source.packet().pos, 0),
                      total);
    }
    return index;
}

} // namespace tio::ffmpeg::detail
