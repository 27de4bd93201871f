#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

namespace tio::test {

/// Bytes whose end lies directly before a page that nobody may touch, so that whoever writes or
/// reads one byte too many is ended.
class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t size) : bytes(size) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t used = (size + page - 1) / page * page;
        mapped = used + page;
        block = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED || mprotect(base() + used, page, PROT_NONE) != 0)
            throw std::runtime_error("no guarded memory");
        first = base() + used - size;
    }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;
    ~GuardedMemory() { munmap(block, mapped); }

    [[nodiscard]] uint8_t* data() const noexcept { return first; }
    [[nodiscard]] std::size_t size() const noexcept { return bytes; }

private:
    [[nodiscard]] uint8_t* base() const noexcept { return static_cast<uint8_t*>(block); }

    std::size_t bytes;
    std::size_t mapped = 0;
    void* block = nullptr;
    uint8_t* first = nullptr;
};

} // namespace tio::test
