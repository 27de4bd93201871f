#pragma once

#include <cstddef>
#include <cstdint>

namespace tio::ffmpeg::detail {

/// Reads bits from the highest of the first byte on. Behind the end every bit is 0 and ranOut()
/// tells, so that a parser of damaged data asks once, when it is done.
class BitReader {
public:
    BitReader(const uint8_t* data, size_t size) noexcept : bytes(data), bitCount(8 * size) {}

    [[nodiscard]] unsigned bit() noexcept {
        const size_t at = position++;
        return at < bitCount ? (bytes[at / 8] >> (7 - at % 8)) & 1u : 0;
    }

    /// Up to 32 bits.
    uint32_t bits(unsigned count) noexcept {
        uint32_t value = 0;
        for (; count > 0; --count)
            value = value << 1 | bit();
        return value;
    }

    /// A number as H.264 codes it: as many zeros as bits follow the first one.
    uint32_t exponential() noexcept {
        unsigned zeros = 0;
        while (zeros < 32 && bit() == 0)
            ++zeros;
        return zeros < 32 ? (uint32_t{1} << zeros) - 1 + bits(zeros) : UINT32_MAX;
    }

    /// Whether more was read than there is.
    [[nodiscard]] bool ranOut() const noexcept { return position > bitCount; }

private:
    const uint8_t* bytes;
    size_t bitCount;
    size_t position = 0;
};

} // namespace tio::ffmpeg::detail
