#pragma once

#include <cstddef>
#include <cstdint>

namespace tio::ffmpeg::detail {

/// A 64-bit hash, the same on every host, at several bytes a clock cycle: it runs over every packet
/// that is read. Not made to withstand an adversary.
///
/// Two inputs of one size that differ within eight bytes at a multiple of eight never collide:
/// every step maps the state one to one. Hashing in pieces, each with the hash before as its seed,
/// is well defined but differs from hashing the whole.
[[nodiscard]] uint64_t hashBytes(const void* data, size_t size, uint64_t seed = 0) noexcept;

/// The hash in 32 bits.
[[nodiscard]] constexpr uint32_t folded(uint64_t hash) noexcept {
    return static_cast<uint32_t>(hash ^ (hash >> 32));
}

} // namespace tio::ffmpeg::detail
