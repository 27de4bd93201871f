#pragma once

#include "bitstream/nalUnits.h"

#include <array>
#include <cstdint>
#include <optional>

namespace tio::ffmpeg::detail {

/// What the header of a slice says about its picture.
struct H264Slice {
    bool reference;     ///< other pictures may refer to it
    bool instantaneous; ///< an IDR picture: numbering starts again
    uint32_t frameNumber;
    bool field;  ///< one of the two fields of a frame
    bool bottom; ///< the second of its lines
};

/// Reads slice headers of an H.264 stream, for which it remembers the parameter sets. Damaged units
/// are passed over.
class H264Headers {
public:
    /// Takes up what the container keeps beside the stream: parameter sets with start codes, or an
    /// AVC configuration record.
    void readExtradata(const uint8_t* data, size_t size);

    /// Bytes of the length in front of each unit; 0 for start codes.
    [[nodiscard]] size_t lengthSize() const noexcept { return unitLengthSize; }

    /// Remembers a parameter set, or reads a slice; nothing for any other unit and for a slice of
    /// which the parameter sets are not known.
    [[nodiscard]] std::optional<H264Slice> read(const NalUnit& unit);

private:
    struct Sequence {
        bool known = false;
        unsigned frameNumberBits = 0;
        bool separatePlanes = false;
        bool framesOnly = true;
    };

    void readSequence(const NalUnit& unit);
    void readPictureParameters(const NalUnit& unit);
    [[nodiscard]] std::optional<H264Slice> readSlice(const NalUnit& unit, unsigned type) const;

    size_t unitLengthSize = 0;
    std::array<Sequence, 32> sequences;
    std::array<uint8_t, 256> sequenceOfPicture{}; // by the number of the picture parameter set
};

} // namespace tio::ffmpeg::detail
