#include "exact/sound/SoundScan.h"

#include "base/checks.h"
#include "base/hash.h"
#include "exact/sound/PacketLength.h"
#include "exact/sound/Trimmer.h"

#include <algorithm>
#include <optional>

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

/// Whether a packet may be damaged, or the sound may be another from here on.
bool isDoubtful(const AVPacket& packet) {
    return (packet.flags & AV_PKT_FLAG_CORRUPT) != 0 ||
           std::any_of(packet.side_data, packet.side_data + packet.side_data_elems,
                       [](const AVPacketSideData& data) {
                           return data.type == AV_PKT_DATA_NEW_EXTRADATA ||
                                  data.type == AV_PKT_DATA_PARAM_CHANGE;
                       });
}

/// Counts the samples that packets tell of, as long as they do.
class ToldSamples {
public:
    explicit ToldSamples(SoundIndexData& ofStream, const AVCodecParameters& parameters)
        : index(ofStream), length(parameters) {
        index.runIn = length.runIn();
    }

    void add(const AVPacket& packet) {
        const std::optional<uint32_t> samples = length.of(packet);
        complete = complete && samples && !isDoubtful(packet);
        if (index.runIn == RunIn::Reservoir)
            index.reservoirBytes.push_back(length.reservoirBytes());
        if (!complete)
            return;
        const PacketCut::Part part = trimmer.keep(packet, *samples);
        const uint32_t kept = part.end - part.from;
        const auto number = static_cast<uint32_t>(index.ends.size());
        index.ends.push_back(index.sampleCount() + kept);
        if (kept == *samples)
            return;
        PacketCut& cut = index.cuts[number];
        cut.raw = *samples;
        if (kept > 0)
            cut.parts.push_back(part);
    }

    [[nodiscard]] bool isComplete() const { return complete; }

private:
    SoundIndexData& index;
    PacketLength length;
    Trimmer trimmer;
    bool complete = true;
};

} // namespace

SoundScan scanSound(PacketSource& source, int stream, ProgressReport& progress) {
    SoundScan scan;
    SoundIndexData& index = scan.index;
    const AVCodecParameters& parameters = *source.stream().codecpar;
    index.packets.stream = stream;
    index.packets.codec = parameters.codec_id;
    index.packets.timeBase = source.stream().time_base;
    index.isSteady = hasNoTimes(*source.format().iformat);
    index.format.rate = parameters.sample_rate;
    ToldSamples told(index, parameters);
    AVIOContext* io = source.format().pb;
    const int64_t total = io != nullptr ? std::max<int64_t>(avio_size(io), 0) : 0;
    while (source.read()) {
        addPacket(index.packets, source.packet());
        told.add(source.packet());
        progress.tell(IndexProgress::Step::Packets, std::max<int64_t>(source.packet().pos, 0),
                      total);
    }
    scan.packetsTell = told.isComplete();
    return scan;
}

} // namespace tio::ffmpeg::detail
