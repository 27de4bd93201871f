#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace tio::ffmpeg::detail {

// Written out by folds, and not as loops over the bytes: compilers make one load or one store of
// it where the host agrees, which g++ does not of a loop at -O2.

template <typename T, size_t... I>
[[nodiscard]] constexpr T fromLittleEndian(const uint8_t* bytes,
                                           std::index_sequence<I...>) noexcept {
    return static_cast<T>((... | (uint64_t{bytes[I]} << (8 * I))));
}

template <typename T, size_t... I>
constexpr void toLittleEndian(T value, uint8_t* bytes, std::index_sequence<I...>) noexcept {
    const auto bits = static_cast<std::make_unsigned_t<T>>(value);
    ((bytes[I] = static_cast<uint8_t>(bits >> (8 * I))), ...);
}

/// An integer stored with its lowest byte first, whatever the host.
template <typename T>
[[nodiscard]] constexpr T fromLittleEndian(const uint8_t* bytes) noexcept {
    return fromLittleEndian<T>(bytes, std::make_index_sequence<sizeof(T)>());
}

template <typename T>
constexpr void toLittleEndian(T value, uint8_t* bytes) noexcept {
    toLittleEndian(value, bytes, std::make_index_sequence<sizeof(T)>());
}

} // namespace tio::ffmpeg::detail
