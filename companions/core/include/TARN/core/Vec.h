#pragma once

#include <utility>

namespace tio {

namespace detail {

template <typename T, std::size_t>
using Repeated = T;

// Holds the elements; the index sequence spells out a constructor that takes exactly N values.
template <typename T, typename Indices>
struct VecElements;

template <typename T, std::size_t... I>
struct VecElements<T, std::index_sequence<I...>> {
    T values[sizeof...(I)]{};

    constexpr VecElements() = default;
    constexpr VecElements(Repeated<T, I>... elements) : values{std::move(elements)...} {}
};

} // namespace detail

/// N values of one type in a fixed order: a picture size, a pixel, the planes of a picture.
///
/// A picture size is always (height, width), in pixels. `Vec<uint8_t, 3>` occupies exactly three
/// bytes, so an array of them is a packed picture. A `Vec` of a trivially copyable type is itself
/// trivially copyable.
///
/// Thread rule: a plain value; different objects may be used from any threads.
///
/// @tparam T type of every element; the default constructor value-initialises all of them.
/// @tparam N number of elements, at least 1.
template <typename T, int N>
class Vec : private detail::VecElements<T, std::make_index_sequence<static_cast<std::size_t>(N)>> {
    static_assert(N > 0, "Vec needs at least one element");
    using Elements = detail::VecElements<T, std::make_index_sequence<static_cast<std::size_t>(N)>>;

public:
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    /// All elements zero, or as `T()` makes them.
    constexpr Vec() = default;

    /// From exactly N values: `Vec<int, 2>(480, 640)`.
    using Elements::Elements;

    /// Element `index`, 0 to N - 1; the range is not checked.
    [[nodiscard]] constexpr T& operator[](int index) noexcept { return this->values[index]; }
    [[nodiscard]] constexpr const T& operator[](int index) const noexcept {
        return this->values[index];
    }

    [[nodiscard]] constexpr iterator begin() noexcept { return this->values; }
    [[nodiscard]] constexpr iterator end() noexcept { return this->values + N; }
    [[nodiscard]] constexpr const_iterator begin() const noexcept { return this->values; }
    [[nodiscard]] constexpr const_iterator end() const noexcept { return this->values + N; }

    friend constexpr bool operator==(const Vec& a, const Vec& b) {
        for (int i = 0; i < N; ++i) {
            if (!(a[i] == b[i]))
                return false;
        }
        return true;
    }
    friend constexpr bool operator!=(const Vec& a, const Vec& b) { return !(a == b); }
};

} // namespace tio
