#include "media/MemoryFile.h"

#include <array>
#include <cerrno>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace tio::tool {

namespace {

[[noreturn]] void throwErrno() {
    throw std::system_error(errno, std::generic_category());
}

} // namespace

MemoryFile::MemoryFile() : descriptor(::memfd_create("tarn-videoio", MFD_CLOEXEC)) {
    if (descriptor < 0)
        throwErrno();
}

MemoryFile::~MemoryFile() {
    ::close(descriptor);
}

std::string MemoryFile::path() const {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

void MemoryFile::forEachBlock(
    const std::function<void(const void* data, size_t size)>& take) const {
    std::array<char, size_t{64} << 10> block;
    for (off_t offset = 0;;) {
        const ssize_t count = ::pread(descriptor, block.data(), block.size(), offset);
        if (count < 0)
            throwErrno();
        if (count == 0)
            return;
        take(block.data(), static_cast<size_t>(count));
        offset += count;
    }
}

} // namespace tio::tool
