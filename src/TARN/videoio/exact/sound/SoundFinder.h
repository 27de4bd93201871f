#pragma once

#include "exact/sound/SoundRun.h"
#include "exact/sound/index/SoundIndexData.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace tio::ffmpeg::detail {

/// Finds samples of a stream by their numbers, in the cheapest way that leads to them.
class SoundFinder {
public:
    enum class Outcome {
        Found,
        Miscounted, ///< the samples that come out are not those that the index promises
        Changed,    ///< the packets are not those of the index
    };

    /// The index must outlive the finder.
    /// @throws as SoundRun's
    SoundFinder(const Source& source, const SoundIndexData& index, int threads);

    /// Reads samples `first` to `first` + `count` - 1, all of which exist in one format.
    /// @param to  room for `count` times as many floats as there are channels
    [[nodiscard]] Outcome read(int64_t first, int64_t count, float* to);

    [[nodiscard]] const AVStream& stream() const { return run.stream(); }
    [[nodiscard]] SoundRun::Work work() const { return run.work(); }

private:
    enum class Result { Hit, Wrong, Lost };

    /// A range of samples and where they go.
    struct Aim {
        int64_t next;
        int64_t end;
        float* to;
    };

    [[nodiscard]] bool isAhead(int64_t sample) const;
    [[nodiscard]] Result goOn(Aim aim);
    [[nodiscard]] Result goOnFrom(uint32_t entry, const Aim& aim);
    [[nodiscard]] Result collect(uint32_t packet);
    [[nodiscard]] Result collectFrame(uint32_t packet, uint32_t& samples);
    [[nodiscard]] bool holdsWhatIsPromised(uint32_t packet) const;
    void deliver(Aim& aim) const;
    void deliverPart(const PacketCut::Part& part, int64_t sample, Aim& aim) const;

    const SoundIndexData& index;
    SoundRun run;

    // Where the run stands.
    bool standing = true;      // it can go on from here
    uint32_t upcoming = 0;     // packet that is collected next
    uint32_t firstChecked = 0; // packets before this one are run-in
    int uselessStarts = 0;     // in mid-stream, from which wrong samples came

    // The packet that was collected last.
    bool holding = false;
    uint32_t held = 0;
    size_t frameCount = 0;
    std::vector<FrameHandle> frames; // those that are not needed now are kept for later
};

} // namespace tio::ffmpeg::detail
