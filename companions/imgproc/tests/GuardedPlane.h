#pragma once

#include <TARN/imgproc/PixelFormat.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

/// A copy of `plane` whose last byte is the last one of its memory page; the next page cannot be
/// touched. A read beyond the plane crashes, also inside libraries that no sanitizer watches.
inline tio::PixelFormat::Plane guardedCopy(const tio::PixelFormat::Plane& plane) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const auto bytes = static_cast<std::size_t>(plane.count);
    const std::size_t usable = (bytes + page - 1) / page * page;
    void* const mapped =
        mmap(nullptr, usable + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED || mprotect(static_cast<char*>(mapped) + usable, page, PROT_NONE) != 0)
        throw std::runtime_error("no guarded memory");
    char* const start = static_cast<char*>(mapped) + usable - bytes;
    std::memcpy(start, plane.data(), bytes);
    const auto unmap = [mapped, usable, page](char*) { munmap(mapped, usable + page); };
    return tio::PixelFormat::Plane(plane.size, std::shared_ptr<char>(start, unmap));
}
