#include "bitstream/H264Headers.h"

#include "bitstream/BitReader.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

namespace {

constexpr unsigned sliceUnit = 1;
constexpr unsigned partitionUnit = 2; // the first of three parts of a slice, the one with a header
constexpr unsigned instantaneousUnit = 5;
constexpr unsigned sequenceUnit = 7;
constexpr unsigned pictureUnit = 8;

// Longer than any slice header is up to the fields that are read.
constexpr size_t sliceBytes = 32;
constexpr size_t parameterBytes = 512;

bool hasChromaFormat(uint32_t profile) {
    constexpr std::array<uint32_t, 13> profiles = {100, 110, 122, 244, 44,  83, 86,
                                                   118, 128, 138, 139, 134, 135};
    return std::find(profiles.begin(), profiles.end(), profile) != profiles.end();
}

void skipScalingList(BitReader& bits, unsigned size) {
    uint32_t last = 8;
    uint32_t next = 8;
    for (unsigned i = 0; i < size; ++i) {
        if (next != 0) {
            const uint32_t coded = bits.exponential(); // 1, -1, 2, -2, … as 1, 2, 3, 4, …
            const uint32_t delta = (coded & 1) != 0 ? coded / 2 + 1 : 0u - coded / 2;
            next = (last + delta) & 0xFF;
        }
        last = next == 0 ? last : next;
    }
}

/// @returns whether colour planes are coded apart
bool skipChromaFormat(BitReader& bits) {
    const uint32_t chromaFormat = bits.exponential();
    const bool separatePlanes = chromaFormat == 3 && bits.bit() != 0;
    bits.exponential(); // bit depths
    bits.exponential();
    bits.bits(1);
    if (bits.bit() != 0) {
        const unsigned lists = chromaFormat != 3 ? 8 : 12;
        for (unsigned list = 0; list < lists; ++list)
            if (bits.bit() != 0)
                skipScalingList(bits, list < 6 ? 16 : 64);
    }
    return separatePlanes;
}

void skipOrderCount(BitReader& bits) {
    const uint32_t type = bits.exponential();
    if (type == 0) {
        bits.exponential();
    } else if (type == 1) {
        bits.bits(1);
        bits.exponential();
        bits.exponential();
        for (uint32_t left = std::min(bits.exponential(), 255u); left > 0; --left)
            bits.exponential();
    }
}

} // namespace

void H264Headers::readExtradata(const uint8_t* data, size_t size) {
    constexpr size_t recordSize = 7;
    const auto remember = [this](const NalUnit& unit) {
        static_cast<void>(read(unit));
        return true;
    };
    if (size < recordSize || data[0] != 1) {
        forEachNalUnit(data, size, 0, remember);
        return;
    }
    unitLengthSize = size_t{data[4] & 3u} + 1;
    // Sequence parameter sets, then picture parameter sets: a count, then units with two bytes of
    // length each.
    size_t at = 5;
    for (const unsigned countMask : {0x1Fu, 0xFFu}) {
        if (at >= size)
            return;
        for (unsigned left = data[at++] & countMask; left > 0 && size - at > 2; --left) {
            const size_t length = std::min(size_t{data[at]} << 8 | data[at + 1], size - at - 2);
            if (length > 0)
                remember({data + at + 2, length});
            at += 2 + length;
        }
    }
}

std::optional<H264Slice> H264Headers::read(const NalUnit& unit) {
    const unsigned type = unit.data[0] & 0x1Fu;
    if (type == sliceUnit || type == partitionUnit || type == instantaneousUnit)
        return readSlice(unit, type);
    if (type == sequenceUnit)
        readSequence(unit);
    else if (type == pictureUnit)
        readPictureParameters(unit);
    return std::nullopt;
}

void H264Headers::readSequence(const NalUnit& unit) {
    const auto content = unescaped(unit, parameterBytes);
    BitReader bits(content.data(), content.size());
    bits.bits(8);
    const uint32_t profile = bits.bits(8);
    bits.bits(16);
    const uint32_t number = bits.exponential();
    Sequence sequence;
    if (hasChromaFormat(profile))
        sequence.separatePlanes = skipChromaFormat(bits);
    const uint32_t bitsBeyond4 = bits.exponential();
    skipOrderCount(bits);
    bits.exponential(); // number of reference frames
    bits.bits(1);
    bits.exponential(); // size
    bits.exponential();
    sequence.framesOnly = bits.bit() != 0;
    if (bits.ranOut() || number >= sequences.size() || bitsBeyond4 > 12)
        return;
    sequence.frameNumberBits = 4 + bitsBeyond4;
    sequence.known = true;
    sequences[number] = sequence;
}

void H264Headers::readPictureParameters(const NalUnit& unit) {
    const auto content = unescaped(unit, parameterBytes);
    BitReader bits(content.data(), content.size());
    bits.bits(8);
    const uint32_t number = bits.exponential();
    const uint32_t sequence = bits.exponential();
    if (!bits.ranOut() && number < sequenceOfPicture.size() && sequence < sequences.size())
        sequenceOfPicture[number] = static_cast<uint8_t>(sequence);
}

std::optional<H264Slice> H264Headers::readSlice(const NalUnit& unit, unsigned type) const {
    const auto content = unescaped(unit, sliceBytes);
    BitReader bits(content.data(), content.size());
    const uint32_t header = bits.bits(8);
    bits.exponential(); // place of the first block
    bits.exponential(); // type of the slice
    const uint32_t parameters = bits.exponential();
    if (parameters >= sequenceOfPicture.size())
        return std::nullopt;
    const Sequence& sequence = sequences[sequenceOfPicture[parameters]];
    if (!sequence.known)
        return std::nullopt;
    if (sequence.separatePlanes)
        bits.bits(2);
    H264Slice slice{};
    slice.reference = (header & 0x60) != 0;
    slice.instantaneous = type == instantaneousUnit;
    slice.frameNumber = bits.bits(sequence.frameNumberBits);
    slice.field = !sequence.framesOnly && bits.bit() != 0;
    slice.bottom = slice.field && bits.bit() != 0;
    if (bits.ranOut())
        return std::nullopt;
    return slice;
}

} // namespace tio::ffmpeg::detail
