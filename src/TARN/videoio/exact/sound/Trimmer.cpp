#include "exact/sound/Trimmer.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

namespace {

// AV_FRAME_DATA_SKIP_SAMPLES and AV_PKT_DATA_SKIP_SAMPLES: two numbers of 32 bits, low byte first,
// and two bytes.
constexpr size_t skipBytes = 10;

uint32_t littleEndian(const uint8_t* bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

} // namespace

PacketCut::Part Trimmer::keep(const AVFrame& frame) {
    const AVFrameSideData* data = av_frame_get_side_data(&frame, AV_FRAME_DATA_SKIP_SAMPLES);
    const bool told = data != nullptr && static_cast<size_t>(data->size) >= skipBytes;
    const uint32_t skipped = told ? littleEndian(data->data) : 0;
    const uint32_t padding = told ? littleEndian(data->data + 4) : 0;
    return keep(static_cast<uint32_t>(frame.nb_samples), skipped, padding,
                (frame.flags & AV_FRAME_FLAG_DISCARD) != 0);
}

PacketCut::Part Trimmer::keep(const AVPacket& packet, uint32_t samples) {
    uint32_t skipped = 0;
    uint32_t padding = 0;
    for (int i = 0; i < packet.side_data_elems; ++i) {
        const AVPacketSideData& data = packet.side_data[i];
        if (data.type != AV_PKT_DATA_SKIP_SAMPLES || static_cast<size_t>(data.size) < skipBytes)
            continue;
        skipped = littleEndian(data.data);
        padding = littleEndian(data.data + 4);
    }
    return keep(samples, skipped, padding, (packet.flags & AV_PKT_FLAG_DISCARD) != 0);
}

PacketCut::Part Trimmer::keep(uint32_t samples, uint32_t skipped, uint32_t padding,
                              bool isDiscarded) {
    if (skipped > 0 || padding > 0)
        toSkip = skipped;
    const uint32_t from = std::min(toSkip, samples);
    toSkip -= from;
    if (isDiscarded || from == samples)
        return {samples, samples};
    // Padding that is longer than what is left is taken for an error, and nothing is taken off.
    const uint32_t left = samples - from;
    return {from, padding <= left ? samples - padding : samples};
}

} // namespace tio::ffmpeg::detail
