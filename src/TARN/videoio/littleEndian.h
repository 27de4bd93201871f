#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tio::ffmpeg::detail {

/// An integer stored with its lowest byte first, whatever the host. Compilers make one load of it
/// where the host agrees.
template <typename T>
[[nodiscard]] constexpr T fromLittleEndian(const uint8_t* bytes) noexcept {
    using Unsigned = std::make_unsigned_t<T>;
    Unsigned value = 0;
    for (size_t i = 0; i < sizeof(T); ++i)
        value = static_cast<Unsigned>(value | static_cast<Unsigned>(Unsigned{bytes[i]} << (8 * i)));
    return static_cast<T>(value);
}

template <typename T>
constexpr void toLittleEndian(T value, uint8_t* bytes) noexcept {
    const auto bits = static_cast<std::make_unsigned_t<T>>(value);
    for (size_t i = 0; i < sizeof(T); ++i)
        bytes[i] = static_cast<uint8_t>(bits >> (8 * i));
}

} // namespace tio::ffmpeg::detail
