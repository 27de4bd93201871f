#pragma once

#include "exact/index/IndexData.h"
#include "exact/run/DecodingRun.h"

#include <TARN/videoio/Frame.h>
#include <TARN/videoio/Types.h>

#include <cstdint>
#include <memory>
#include <set>
#include <vector>

namespace tio::ffmpeg::detail {

/// Finds one picture of a stream by its frame number, in the cheapest way that leads to it.
class FrameFinder {
public:
    enum class Outcome {
        Found,
        Damaged,     ///< the stream has to be counted again with one thread
        Misnumbered, ///< the pictures that come out are not those that the index promises
        Changed,     ///< the packets are not those of the index
        Unreachable, ///< the picture does not come out, whatever is tried
    };

    /// How the picture that was found was reached.
    enum class Way {
        Straight,   ///< from the key frame before it
        AfterRetry, ///< from an earlier one
        FromStart,  ///< from the start of the stream
    };

    /// The index must outlive the finder.
    FrameFinder(std::shared_ptr<PacketSource> source, const IndexData& index, PixelFormat format,
                int threads);

    /// Decodes up to a frame. `wanted` are the frames, rising, that are asked for together with it:
    /// those are not left out on the way.
    [[nodiscard]] Outcome find(int64_t frame, const std::vector<int64_t>& wanted = {});

    /// On the picture of the frame that was found.
    [[nodiscard]] FrameDecoder& decoder() noexcept { return run.decoder(); }

    [[nodiscard]] Way way() const noexcept { return taken; }

    /// What reading has shown of the places where decoding can start.
    [[nodiscard]] const EntryNotes& learned() const noexcept { return notes; }
    [[nodiscard]] DecodingRun::Work work() const { return run.work(); }

private:
    enum class Result { Hit, Missed, WrongPicture, Damaged, Misnumbered, Lost };

    /// What is asked for, and whether pictures that no other needs may be left out on the way.
    struct Aim {
        int64_t frame;
        const std::vector<int64_t>& wanted;
        bool leaveOut;
    };

    [[nodiscard]] bool isAhead(int64_t frame) const;
    [[nodiscard]] Result enterAndDecode(uint32_t entry, const Aim& aim);
    [[nodiscard]] Result enterTwice(uint32_t entry, Aim aim);
    [[nodiscard]] Result decodeTo(const Aim& aim);
    [[nodiscard]] Outcome findFromStart(const Aim& aim);
    void begin(int64_t firstCleanFrame, bool fromStart);

    [[nodiscard]] bool isLeftOut(uint32_t packet, const Aim& aim);
    [[nodiscard]] bool isSurprise(uint32_t packet) const;
    [[nodiscard]] bool passTo(int64_t frame);
    [[nodiscard]] Result judge(int64_t frame);
    void noteEntry(uint32_t entry, int64_t frame, Result result);

    const IndexData& index;
    EntryNotes notes;
    DecodingRun run;

    // Where the run stands.
    bool standing = true;       // it can go on from here
    int64_t last = -1;          // frame that came out last
    int64_t firstClean = 0;     // frame of the entry: those before it come out damaged
    bool begun = true;          // from here on no frame may be missing
    bool damageSeen = false;    // in a picture since the entry
    int64_t failuresBefore = 0; // of the decoder, up to the entry
    std::set<int64_t> leftOut;  // frames after the last one that were not decoded
    Way taken = Way::Straight;
};

} // namespace tio::ffmpeg::detail
