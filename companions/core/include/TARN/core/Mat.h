#pragma once

#include <TARN/core/Exception.h>
#include <TARN/core/MatAlloc.h>
#include <TARN/core/Vec.h>

#include <cstddef>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

namespace tio {

/// Marks what a matrix stands for; it carries no data. `MatOptions<1, 1>` are pictures whose
/// elements are whole pixels and blocks of samples, `MatOptions<0, 1>` planes of single bytes.
template <int A, int B>
struct MatOptions {};

/// A dense array; only the two-dimensional form exists.
template <typename T, int D, typename Options = MatOptions<1, 1>>
class Mat;

/// A two-dimensional, row-major array whose elements are shared by reference count.
///
/// Copying a `Mat` copies no elements: all copies see the same storage, which lives as long as the
/// last of them. Element (r, c) lies at index r * step[0] + c * step[1] from the start of the
/// storage. An RGB picture is `Mat<Vec<uint8_t, 3>, 2>` with one row per picture row; a block of
/// audio is `Mat<float, 2>` with one row per sample and one column per channel.
///
/// The elements of a const `Mat` are const; a copy of it is not const and reaches the same
/// elements, as a copied pointer does.
///
/// Thread rule: like `std::shared_ptr`. Different objects may be used from any threads; writing
/// elements that another thread reads needs a lock of the caller's.
///
/// @tparam T element type, trivially copyable.
template <typename T, typename Options>
class Mat<T, 2, Options> {
    static_assert(std::is_trivially_copyable_v<T>, "Mat keeps its elements as plain bytes");

public:
    int count = 0;                 ///< Number of elements, rows times columns.
    Vec<int, 2> size;              ///< (rows, columns).
    std::shared_ptr<char> storage; ///< The bytes of the elements; null in an empty matrix.
    Vec<int, 2> step{0, 1};        ///< Distance of neighbours in elements, per dimension.

    /// No rows, no columns, no storage.
    Mat() = default;

    /// `dimensions` elements from the process-wide `MatAlloc`, rows following each other without
    /// gaps. The elements are not initialised.
    /// @throws tio::Exception if a dimension is negative or the count leaves the range of `int`.
    explicit Mat(Vec<int, 2> dimensions)
        : Mat(dimensions, elementCount(dimensions),
              MatAlloc::getGlobalMatAlloc()->getBytes(byteCount(elementCount(dimensions)))) {}

    /// `dimensions` elements that already lie in `storage`, rows following each other without gaps.
    /// The storage is shared, not copied, and must hold them all.
    /// @throws tio::Exception as above, and if there are elements but no storage.
    Mat(Vec<int, 2> dimensions, std::shared_ptr<char> bytes)
        : Mat(dimensions, elementCount(dimensions), std::move(bytes)) {}

    [[nodiscard]] int rows() const noexcept { return size[0]; }
    [[nodiscard]] int cols() const noexcept { return size[1]; }

    /// The first element, or null if there is no storage.
    [[nodiscard]] T* data() noexcept { return reinterpret_cast<T*>(storage.get()); }
    [[nodiscard]] const T* data() const noexcept {
        return reinterpret_cast<const T*>(storage.get());
    }

    /// The element at (`row`, `col`); the range is not checked.
    [[nodiscard]] T& operator()(int row, int col) noexcept { return data()[index(row, col)]; }
    [[nodiscard]] const T& operator()(int row, int col) const noexcept {
        return data()[index(row, col)];
    }

private:
    Mat(Vec<int, 2> dimensions, int elements, std::shared_ptr<char> bytes)
        : count(elements), size(dimensions), storage(std::move(bytes)), step(dimensions[1], 1) {
        if (count > 0 && !storage)
            throw Exception("A matrix with elements needs storage");
    }

    [[nodiscard]] std::ptrdiff_t index(int row, int col) const noexcept {
        return std::ptrdiff_t{row} * step[0] + std::ptrdiff_t{col} * step[1];
    }

    static int elementCount(Vec<int, 2> dimensions) {
        if (dimensions[0] < 0 || dimensions[1] < 0)
            throw Exception("A matrix cannot have a negative size");
        const auto elements = static_cast<long long>(dimensions[0]) * dimensions[1];
        if (elements > std::numeric_limits<int>::max())
            throw Exception("A matrix cannot have that many elements");
        return static_cast<int>(elements);
    }

    static std::size_t byteCount(int elements) {
        constexpr std::size_t most = std::numeric_limits<std::size_t>::max() / sizeof(T);
        if (static_cast<std::size_t>(elements) > most)
            throw Exception("A matrix cannot have that many bytes");
        return static_cast<std::size_t>(elements) * sizeof(T);
    }
};

} // namespace tio
