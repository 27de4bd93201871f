#include "FailingAllocation.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <new>
#include <unwind.h>

// The allocator proper: a sanitizer's where the program has one, otherwise that of the C library.
// Both are made to be called under these names by a program that brings its own malloc().
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);
__attribute__((weak)) void* __interceptor_malloc(size_t size);
__attribute__((weak)) void* __interceptor_calloc(size_t count, size_t size);
__attribute__((weak)) void* __interceptor_realloc(void* block, size_t size);
__attribute__((weak)) void* __interceptor_memalign(size_t alignment, size_t size);
__attribute__((weak)) void __interceptor_free(void* block);
__attribute__((weak)) void __sanitizer_print_stack_trace();
}

namespace tio::fuzz {

namespace {

struct State {
    uint32_t first = FailingAllocation::never;
    uint32_t count = 0;
    uint32_t made = 0;
    uint32_t failed = 0;
    uint32_t shown = FailingAllocation::never;
    int deepest = 0;
    bool onlyCpp = false;
    const char* const* spared = nullptr;
    size_t sparedCount = 0;
};

State state;
thread_local bool inScope = false;
thread_local bool accountKept = false;

/// Blocks by address, in a table that needs no allocation itself.
class Account {
public:
    void add(void* block, uint32_t number) {
        if (block == nullptr || held >= entries.size() / 2)
            return;
        size_t place = placeOf(block);
        while (entries[place].block != nullptr)
            place = next(place);
        entries[place] = {block, number};
        ++held;
    }

    // Those after it move up, so that a search may stop at the first gap.
    void remove(void* block) {
        if (held == 0)
            return;
        size_t gap = placeOf(block);
        while (entries[gap].block != block) {
            if (entries[gap].block == nullptr)
                return;
            gap = next(gap);
        }
        for (size_t place = next(gap); entries[place].block != nullptr; place = next(place)) {
            const size_t home = placeOf(entries[place].block);
            const bool reachable =
                gap <= place ? gap < home && home <= place : gap < home || home <= place;
            if (reachable)
                continue;
            entries[gap] = entries[place];
            gap = place;
        }
        entries[gap] = {};
        --held;
    }

    void clear() {
        entries.fill({});
        held = 0;
    }

    [[nodiscard]] size_t size() const { return held; }

    [[nodiscard]] uint32_t firstNumber() const {
        uint32_t lowest = FailingAllocation::never;
        for (const Entry& entry : entries)
            if (entry.block != nullptr && entry.number < lowest)
                lowest = entry.number;
        return lowest;
    }

private:
    struct Entry {
        void* block = nullptr;
        uint32_t number = 0;
    };

    [[nodiscard]] size_t placeOf(const void* block) const {
        const auto address = reinterpret_cast<uintptr_t>(block);
        return (address >> 4) * 0x9E3779B97F4A7C15u % entries.size();
    }
    [[nodiscard]] size_t next(size_t place) const { return (place + 1) % entries.size(); }

    std::array<Entry, 65537> entries{};
    size_t held = 0;
};

Account account;
std::mutex accountLock; // blocks may be freed by other threads

// The linker's names for where the program's own code lies.
extern "C" const char __executable_start;
extern "C" const char etext;

/// The calls between the allocator, which is part of the program, and the program's own call that
/// led to it.
struct Path {
    Path() { _Unwind_Backtrace(step, this); }

    static _Unwind_Reason_Code step(_Unwind_Context* frame, void* walked) {
        auto& path = *static_cast<Path*>(walked);
        const uintptr_t at = _Unwind_GetIP(frame);
        const bool own = at >= reinterpret_cast<uintptr_t>(&__executable_start) &&
                         at < reinterpret_cast<uintptr_t>(&etext);
        if (own && path.outermost != 0)
            return _URC_END_OF_STACK;
        if (!own) {
            path.outermost = at;
            ++path.length;
        }
        return _URC_NO_REASON;
    }

    /// Name of the function in a shared library that the program called; empty when it allocates
    /// itself.
    [[nodiscard]] const char* called() const {
        Dl_info found{};
        const bool known =
            outermost != 0 && dladdr(reinterpret_cast<void*>(outermost - 1), &found) != 0;
        return known && found.dli_sname != nullptr ? found.dli_sname : "";
    }

    uintptr_t outermost = 0;
    int length = 0;
};

bool isSpared(const Path& path) {
    return std::find_if(state.spared, state.spared + state.sparedCount, [&](const char* name) {
               return std::strcmp(name, path.called()) == 0;
           }) != state.spared + state.sparedCount;
}

enum class Origin { C, Cpp };

/// Counts an allocation of this thread, and says whether it is to fail.
bool shallFail(Origin origin) {
    if (!inScope || (state.onlyCpp && origin == Origin::C))
        return false;
    const uint32_t number = state.made++;
    if (number == state.shown && __sanitizer_print_stack_trace != nullptr) {
        inScope = false;
        __sanitizer_print_stack_trace();
        inScope = true;
    }
    if (number < state.first || state.failed >= state.count)
        return false;
    inScope = false;
    const Path path;
    const bool spared = isSpared(path);
    inScope = true;
    if (spared)
        return false;
    ++state.failed;
    state.deepest = std::max(state.deepest, path.length);
    errno = ENOMEM;
    return true;
}

void* noted(void* block) {
    if (inScope && accountKept) {
        const std::lock_guard<std::mutex> lock(accountLock);
        account.add(block, state.made - 1);
    }
    return block;
}

void forget(void* block) {
    if (block == nullptr || account.size() == 0)
        return;
    const std::lock_guard<std::mutex> lock(accountLock);
    account.remove(block);
}

void* allocate(size_t size, Origin origin) {
    if (shallFail(origin))
        return nullptr;
    return noted(__interceptor_malloc != nullptr ? __interceptor_malloc(size)
                                                 : __libc_malloc(size));
}

void* allocateZeroed(size_t count, size_t size) {
    if (shallFail(Origin::C))
        return nullptr;
    return noted(__interceptor_calloc != nullptr ? __interceptor_calloc(count, size)
                                                 : __libc_calloc(count, size));
}

void* allocateAligned(size_t alignment, size_t size, Origin origin) {
    if (shallFail(origin))
        return nullptr;
    return noted(__interceptor_memalign != nullptr ? __interceptor_memalign(alignment, size)
                                                   : __libc_memalign(alignment, size));
}

void release(void* block) {
    forget(block);
    if (__interceptor_free != nullptr)
        __interceptor_free(block);
    else
        __libc_free(block);
}

void* resize(void* block, size_t size) {
    if (shallFail(Origin::C))
        return nullptr;
    forget(block);
    return noted(__interceptor_realloc != nullptr ? __interceptor_realloc(block, size)
                                                  : __libc_realloc(block, size));
}

void* orThrow(void* block) {
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

} // namespace

void FailingAllocation::plan(uint32_t first, uint32_t count, Kind kind) {
    state.first = first;
    state.count = count;
    state.made = 0;
    state.failed = 0;
    state.deepest = 0;
    state.onlyCpp = kind == Kind::OfCpp;
    account.clear();
}

void FailingAllocation::spare(const char* const* functions, size_t count) {
    state.spared = functions;
    state.sparedCount = count;
}

uint32_t FailingAllocation::made() {
    return state.made;
}

uint32_t FailingAllocation::failed() {
    return state.failed;
}

int FailingAllocation::deepestFailure() {
    return state.deepest;
}

size_t FailingAllocation::stillThere() {
    return account.size();
}

uint32_t FailingAllocation::firstStillThere() {
    return account.firstNumber();
}

void FailingAllocation::showStackOf(uint32_t number) {
    state.shown = number;
}

FailingAllocation::Scope::Scope(Account kept) {
    inScope = true;
    accountKept = kept == Account::Kept;
}

FailingAllocation::Scope::~Scope() {
    inScope = false;
}

} // namespace tio::fuzz

// A program's own functions of these names are used by every library in it.
extern "C" {

void* malloc(size_t size) {
    return tio::fuzz::allocate(size, tio::fuzz::Origin::C);
}

void* calloc(size_t count, size_t size) {
    return tio::fuzz::allocateZeroed(count, size);
}

void* realloc(void* block, size_t size) {
    return tio::fuzz::resize(block, size);
}

void* memalign(size_t alignment, size_t size) {
    return tio::fuzz::allocateAligned(alignment, size, tio::fuzz::Origin::C);
}

void* aligned_alloc(size_t alignment, size_t size) {
    return tio::fuzz::allocateAligned(alignment, size, tio::fuzz::Origin::C);
}

int posix_memalign(void** block, size_t alignment, size_t size) {
    void* allocated = tio::fuzz::allocateAligned(alignment, size, tio::fuzz::Origin::C);
    if (allocated == nullptr)
        return ENOMEM;
    *block = allocated;
    return 0;
}

void free(void* block) {
    tio::fuzz::release(block);
}

} // extern "C"

void* operator new(size_t size) {
    return tio::fuzz::orThrow(tio::fuzz::allocate(size, tio::fuzz::Origin::Cpp));
}

void* operator new[](size_t size) {
    return tio::fuzz::orThrow(tio::fuzz::allocate(size, tio::fuzz::Origin::Cpp));
}

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return tio::fuzz::allocate(size, tio::fuzz::Origin::Cpp);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return tio::fuzz::allocate(size, tio::fuzz::Origin::Cpp);
}

void* operator new(size_t size, std::align_val_t alignment) {
    return tio::fuzz::orThrow(
        tio::fuzz::allocateAligned(static_cast<size_t>(alignment), size, tio::fuzz::Origin::Cpp));
}

void* operator new[](size_t size, std::align_val_t alignment) {
    return tio::fuzz::orThrow(
        tio::fuzz::allocateAligned(static_cast<size_t>(alignment), size, tio::fuzz::Origin::Cpp));
}

void operator delete(void* block) noexcept {
    tio::fuzz::release(block);
}

void operator delete[](void* block) noexcept {
    tio::fuzz::release(block);
}

void operator delete(void* block, size_t) noexcept {
    tio::fuzz::release(block);
}

void operator delete[](void* block, size_t) noexcept {
    tio::fuzz::release(block);
}

void operator delete(void* block, std::align_val_t) noexcept {
    tio::fuzz::release(block);
}

void operator delete[](void* block, std::align_val_t) noexcept {
    tio::fuzz::release(block);
}

void operator delete(void* block, size_t, std::align_val_t) noexcept {
    tio::fuzz::release(block);
}

void operator delete[](void* block, size_t, std::align_val_t) noexcept {
    tio::fuzz::release(block);
}
