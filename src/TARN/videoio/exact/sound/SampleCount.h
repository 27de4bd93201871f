#pragma once

#include "exact/sound/Trimmer.h"
#include "exact/sound/index/SoundIndexData.h"
#include "ffmpeg_compat.h"

#include <cstdint>

namespace tio::ffmpeg::detail {

/// Counts the samples of a decoding from start to end into the index of its packets.
class SampleCount {
public:
    /// Drops what the index has of samples. It must outlive the count.
    explicit SampleCount(SoundIndexData& index);

    /// Takes the next frame, which comes from a packet.
    void add(uint32_t packet, const AVFrame& frame);

    /// Says that there are no more.
    void finish();

private:
    void closePackets(uint32_t end);
    void noteFormat(const AVFrame& frame);

    SoundIndexData& index;
    Trimmer trimmer;
    int64_t total = 0;
    PacketCut current; // of the packet that is not closed
    uint64_t hash = 0; // of what it gave
};

/// Works out at which times the samples are heard, from the times of their packets.
void findTimes(SoundIndexData& index);

} // namespace tio::ffmpeg::detail
