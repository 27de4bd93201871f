#include "exact/sound/runIn.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

namespace {

// Where a codec has no rule the index has checksums: a wrong guess shows, and the next is longer.
constexpr uint32_t guessedPackets = 24;

// How much earlier each further attempt begins, and how many there are before the start is tried.
constexpr uint32_t growth = 4;
constexpr int attemptsInMidStream = 2;

// An MP3 packet may take up to 511 bytes from those before it (255 at the low sampling
// frequencies). Besides, the overlap of two blocks and the filter bank reach back a packet each.
constexpr int64_t largestReservoir = 511;
constexpr uint32_t filterPackets = 2;

// One packet holds what the next one overlaps with; with one more all real clips came out right.
// Twice as many cost nothing to speak of.
constexpr uint32_t overlapPackets = 4;

uint32_t packetsForReservoir(const SoundIndexData& index, uint32_t target) {
    int64_t bytes = 0;
    uint32_t packet = target;
    while (packet > 0 && bytes < largestReservoir)
        bytes += index.reservoirBytes[--packet];
    return target - packet + filterPackets;
}

/// How many packets before `target` its codec needs.
uint32_t packetsBefore(const SoundIndexData& index, uint32_t target) {
    switch (index.runIn) {
    case RunIn::None:
        return 0;
    case RunIn::Overlap:
        return overlapPackets;
    case RunIn::Reservoir:
        return packetsForReservoir(index, target);
    case RunIn::Guess:
        break;
    }
    return guessedPackets;
}

} // namespace

uint32_t entryFor(const SoundIndexData& index, uint32_t target, int attempt) {
    if (attempt >= attemptsInMidStream)
        return 0;
    uint32_t before = packetsBefore(index, target);
    for (; attempt > 0; --attempt)
        before = std::max(before, 1u) * growth;
    return target > before ? target - before : 0;
}

} // namespace tio::ffmpeg::detail
