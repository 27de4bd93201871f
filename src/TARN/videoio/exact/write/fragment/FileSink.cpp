#include "exact/write/fragment/FileSink.h"

#include "base/checks.h"
#include "ffmpeg_compat.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tio::ffmpeg::detail {

FileSink::FileSink(const std::string& path, std::string clip)
    : name(std::move(clip)), descriptor(::open(path.c_str(), O_WRONLY | O_CLOEXEC)) {
    require(descriptor >= 0, 10);
    struct stat status = {};
    regular = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

FileSink::~FileSink() {
    ::close(descriptor);
}

void FileSink::require(bool done, int place) const {
    if (!done)
        checkResult(AVERROR(errno), {"FileSink", place}, name);
}

void FileSink::write(const uint8_t* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t written = ::write(descriptor, bytes, count);
        if (written < 0 && errno == EINTR)
            continue;
        require(written >= 0, 20);
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
}

void FileSink::flushToDisk() {
    const bool done = ::fsync(descriptor) == 0;
    require(done || errno == EINVAL || errno == ENOSYS, 40); // not every file system can
}

void FileSink::seek(int64_t position) {
    require(::lseek(descriptor, position, SEEK_SET) >= 0, 30);
}

} // namespace tio::ffmpeg::detail
