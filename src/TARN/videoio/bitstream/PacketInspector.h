#pragma once

#include "bitstream/H264Headers.h"
#include "ffmpeg_compat.h"

#include <cstdint>
#include <optional>

namespace tio::ffmpeg::detail {

/// What a packet's own headers say, without decoding it.
struct PacketFacts {
    bool hidden = false;     ///< kept for reference only: no picture comes out
    bool disposable = false; ///< no other picture of its layer, or of a lower one, refers to it
    unsigned layer = 0;      ///< the temporal one; pictures of a higher layer may refer to it
};

/// Looks at the packets of one stream in the order of the file. Knows H.264, HEVC, MPEG-1, MPEG-2,
/// VP8 and VP9; packets of other codecs are taken to give one picture each, needed by others.
class PacketInspector {
public:
    explicit PacketInspector(const AVCodecParameters& parameters);

    [[nodiscard]] PacketFacts inspect(const AVPacket& packet);

    /// Whether pictures come out right when disposable ones are left out. H.264 has streams in
    /// which such pictures are counted all the same: leaving them out makes a gap.
    [[nodiscard]] bool mayLeaveOut() const noexcept { return !countsDisposables && !fieldsApart; }

    /// Whether there was a packet with a single field: two of them give one picture.
    [[nodiscard]] bool hasFieldsApart() const noexcept { return fieldsApart; }

    /// Whether there was a packet that cannot be whole.
    [[nodiscard]] bool hasDamage() const noexcept { return damaged; }

    /// The highest temporal layer so far.
    [[nodiscard]] unsigned highestLayer() const noexcept { return topLayer; }

private:
    [[nodiscard]] PacketFacts inspectH264(const AVPacket& packet);
    [[nodiscard]] PacketFacts inspectHevc(const AVPacket& packet);
    [[nodiscard]] PacketFacts inspectMpeg(const AVPacket& packet);
    void noteFrameNumber(const H264Slice& first);

    AVCodecID codec;
    H264Headers h264;
    size_t hevcLengthSize = 0;
    std::optional<H264Slice> previous; // picture
    bool countsDisposables = false;
    bool fieldsApart = false;
    bool damaged = false;
    unsigned topLayer = 0;
};

} // namespace tio::ffmpeg::detail
