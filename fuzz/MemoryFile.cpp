#include "MemoryFile.h"

#include <TARN/logging/log.h>

#include <cstdlib>
#include <sys/mman.h>
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

MemoryFile::~MemoryFile() {
    close(descriptor);
}

std::string MemoryFile::path() const {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

void silenceLog() {
    log::setSink([](const std::string&, log::Level, const std::string&) {});
}

} // namespace tio::fuzz
