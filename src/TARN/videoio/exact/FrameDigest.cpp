#include "base/checks.h"
#include "base/littleEndian.h"
#include "base/ticks.h"

#include <TARN/videoio/FrameDigest.h>

namespace tio::ffmpeg {

namespace {

__extension__ typedef unsigned __int128 Wide;

uint64_t product(uint64_t a, uint64_t b) noexcept {
    return static_cast<uint64_t>(Wide{a} * b % FrameDigest::modulus);
}

uint64_t sum(uint64_t a, uint64_t b) noexcept {
    return static_cast<uint64_t>((Wide{a} + b) % FrameDigest::modulus);
}

uint64_t powerOfBase(int64_t exponent) noexcept {
    uint64_t power = 1;
    uint64_t square = FrameDigest::base;
    for (; exponent > 0; exponent /= 2) {
        if (exponent % 2 != 0)
            power = product(power, square);
        square = product(square, square);
    }
    return power;
}

} // namespace

// One more than the checksum, so that a picture with checksum 0 counts.
void FrameDigest::add(uint32_t checksum) noexcept {
    pictures = detail::wrappingSum(pictures, 1);
    value = sum(product(value, base), uint64_t{checksum} + 1);
}

FrameDigest FrameDigest::followedBy(const FrameDigest& next) const noexcept {
    return {detail::wrappingSum(pictures, next.pictures),
            sum(product(value, powerOfBase(next.pictures)), next.value)};
}

std::array<uint8_t, FrameDigest::byteCount> FrameDigest::toBytes() const noexcept {
    std::array<uint8_t, byteCount> bytes{};
    detail::toLittleEndian(static_cast<uint64_t>(pictures), bytes.data());
    detail::toLittleEndian(value, bytes.data() + sizeof value);
    return bytes;
}

FrameDigest FrameDigest::fromBytes(const std::array<uint8_t, byteCount>& bytes) {
    FrameDigest digest;
    digest.pictures = detail::fromLittleEndian<int64_t>(bytes.data());
    digest.value = detail::fromLittleEndian<uint64_t>(bytes.data() + sizeof digest.value);
    if (digest.pictures < 0 || digest.value >= modulus)
        detail::failPlainly("These bytes are no digest of pictures");
    return digest;
}

} // namespace tio::ffmpeg
