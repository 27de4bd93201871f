#pragma once

#include <cstddef>
#include <cstdint>

namespace tio::fuzz {

/// Which allocations of this thread fail, and which of them are never given back. The program that
/// links this has every allocation of every library in it go through here; other threads, and this
/// one outside of a Scope, are not concerned.
class FailingAllocation {
public:
    static constexpr uint32_t never = UINT32_MAX;

    /// Which allocations are counted, and may fail.
    enum class Kind { All, OfCpp };

    /// Starts again: of the allocations made within scopes from now on, number `first` (from 0) and
    /// the `count` - 1 after it fail, except those that are spared.
    static void plan(uint32_t first, uint32_t count, Kind kind = Kind::All);

    /// Allocations that the program causes by calling one of these functions of a shared library
    /// do not fail. The names must stay.
    static void spare(const char* const* functions, size_t count);

    /// How many were made within scopes since.
    [[nodiscard]] static uint32_t made();

    /// How many of them failed.
    [[nodiscard]] static uint32_t failed();

    /// Through how many calls in shared libraries the deepest of these came, from the program on.
    [[nodiscard]] static int deepestFailure();

    /// How many of those that were made in a Scope that keeps account are still there.
    [[nodiscard]] static size_t stillThere();

    /// Number of one of those.
    [[nodiscard]] static uint32_t firstStillThere();

    /// Shows the stack of allocation number `number` when it is made next.
    static void showStackOf(uint32_t number);

    /// Where allocations count, and fail.
    class Scope {
    public:
        enum class Account { Kept, NotKept };

        explicit Scope(Account account = Account::Kept);
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope();
    };
};

} // namespace tio::fuzz
