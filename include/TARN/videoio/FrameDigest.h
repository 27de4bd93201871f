#pragma once

#include <TARN/videoio/Export.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace tio::ffmpeg {

/// A hash over decoded pictures that follow each other, before any conversion, made of their
/// checksums. Two ranges that consist of the same pictures in the same order have the same digest,
/// on every host; one picture that is missing, doubled, at another place or another makes another.
/// It finds errors, and is not made to withstand somebody who looks for two ranges with one digest.
///
/// Digests of neighbours make that of both together, whoever made them, in whatever order:
///
/// @code
/// FrameDigest whole;                       // of no pictures
/// for (const FrameDigest& part : inOrder)
///     whole = whole.followedBy(part);
/// bool complete = whole == index.digest(0, index.frameCount());
/// @endcode
///
/// The value is a number modulo 2^61 - 1: with one more picture it becomes value × base +
/// checksum + 1, and followedBy() is value × base^(pictures of next) + value of next. No pictures
/// have 0.
/// Thread rule: a value.
struct TARN_VIDEOIO_API FrameDigest {
    static constexpr uint64_t modulus = (uint64_t{1} << 61) - 1; // a prime

    /// A number whose bits look random: the first 61 of the golden ratio after the point.
    static constexpr uint64_t base = 0x13C6EF372FE94F82;

    static constexpr std::size_t byteCount = 16;

    int64_t pictures = 0; ///< how many there are
    uint64_t value = 0;   ///< below the modulus

    /// Adds a picture after the others.
    void add(uint32_t checksum) noexcept;

    /// That of these pictures and of those of `next` after them.
    [[nodiscard]] FrameDigest followedBy(const FrameDigest& next) const noexcept;

    /// Both numbers, lowest byte first.
    [[nodiscard]] std::array<uint8_t, byteCount> toBytes() const noexcept;

    /// @throws tio::Exception for bytes that toBytes() does not give
    [[nodiscard]] static FrameDigest fromBytes(const std::array<uint8_t, byteCount>& bytes);

    friend bool operator==(const FrameDigest& a, const FrameDigest& b) noexcept {
        return a.pictures == b.pictures && a.value == b.value;
    }
    friend bool operator!=(const FrameDigest& a, const FrameDigest& b) noexcept {
        return !(a == b);
    }
};

} // namespace tio::ffmpeg
