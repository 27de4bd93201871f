#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define TARN_CORE_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARN_CORE_ASAN 1
#endif
#endif

#ifdef TARN_CORE_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace tio::detail {

/// Makes AddressSanitizer report every access to memory that waits in a cache. A block that is kept
/// is still allocated as far as the sanitizer knows; without this, use after release would stay
/// unseen. Does nothing in other builds.
inline void forbidAccess([[maybe_unused]] const void* start,
                         [[maybe_unused]] std::size_t byteCount) noexcept {
#ifdef TARN_CORE_ASAN
    __asan_poison_memory_region(start, byteCount);
#endif
}

/// Takes `forbidAccess` back.
inline void allowAccess([[maybe_unused]] const void* start,
                        [[maybe_unused]] std::size_t byteCount) noexcept {
#ifdef TARN_CORE_ASAN
    __asan_unpoison_memory_region(start, byteCount);
#endif
}

} // namespace tio::detail
