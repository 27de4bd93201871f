#pragma once

#include "exact/index/IndexData.h"
#include "exact/run/FrameDecoder.h"
#include "exact/run/PacketCursor.h"
#include "exact/run/PacketSource.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace tio::ffmpeg::detail {

/// Decodes a stream picture by picture from a packet of one's choice on.
class DecodingRun {
public:
    /// Says whether a packet need not be decoded.
    using LeaveOut = std::function<bool(uint32_t packet)>;

    /// What was done so far.
    struct Work {
        int64_t packets = 0;  ///< given to the decoder
        int64_t pictures = 0; ///< that came out of it
    };

    /// Stands before packet 0 where the source is at its start, and else nowhere. The source may be
    /// used by others in between, but then the run has to be entered once more. The index must
    /// outlive the run.
    DecodingRun(std::shared_ptr<PacketSource> source, const IndexData& index, PixelFormat format,
                int threads);

    /// Goes on from packet `number`, with nothing left of what came before.
    /// @returns false when the packet cannot be found again
    [[nodiscard]] bool enterAt(uint32_t number);

    /// Goes on from the start as if the source were opened again, which it is where it must be.
    void rewind();

    /// Goes on from the start, with a new decoder and the source opened again.
    void startOver();

    /// Goes to the next picture; false when no more come, because the stream is at its end or
    /// cannot be followed, or because it would take packet `limit`.
    [[nodiscard]] bool next(const LeaveOut& leaveOut = {}, uint32_t limit = UINT32_MAX);

    /// What is known of the picture, and the picture.
    [[nodiscard]] FrameDecoder& decoder() noexcept { return *codec; }

    /// The packet that is read next.
    [[nodiscard]] uint32_t nextPacket() const noexcept { return cursor.nextNumber(); }

    /// Whether the packets that came were others than those of the index.
    [[nodiscard]] bool isLost() const noexcept { return lost; }

    [[nodiscard]] Work work() const;

private:
    void makeDecoder();
    [[nodiscard]] bool feed(const LeaveOut& leaveOut, uint32_t limit);

    std::shared_ptr<PacketSource> source;
    PacketCursor cursor;
    PixelFormat format;
    int threads;
    std::unique_ptr<FrameDecoder> codec; // after the source, to whose stream it refers
    int64_t openingOfCodec = 0;          // which one of the source the codec belongs to
    bool ended = false;
    bool lost = false;
    Work earlier; // done by decoders before this one
};

} // namespace tio::ffmpeg::detail
