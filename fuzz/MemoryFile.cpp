#include "MemoryFile.h"

#include <cstdlib>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tio::fuzz {

MemoryFile::MemoryFile(const uint8_t* bytes, size_t count)
    : descriptor(memfd_create("fuzz", MFD_CLOEXEC)) {
    while (count > 0) {
        const ssize_t written = write(descriptor, bytes, count);
        if (written <= 0)
            std::abort(); // a fault of the machine, not of what is tested
        bytes += written;
        count -= static_cast<size_t>(written);
    }
}

// Loading a damaged index leaves its file open, as docs/behaviour.md says. After some
// thousand inputs there would be no descriptor left.
MemoryFile::~MemoryFile() {
    constexpr int farthest = 16;
    struct stat own {};
    fstat(descriptor, &own);
    for (int other = descriptor + 1; other <= descriptor + farthest; ++other) {
        struct stat found {};
        if (fstat(other, &found) == 0 && found.st_dev == own.st_dev && found.st_ino == own.st_ino)
            close(other);
    }
    close(descriptor);
}

std::string MemoryFile::path() const {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

} // namespace tio::fuzz
