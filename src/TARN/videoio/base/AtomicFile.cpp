#include "base/checks.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/AtomicFile.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tio::ffmpeg {

namespace fs = std::filesystem;

namespace {

constexpr mode_t readableAndWritable = 0666; // less what the umask takes away
constexpr mode_t permissionBits = 0777;
constexpr int mostLinks = 40; // as many as Linux follows

bool isStandardOutput(const struct stat& file) {
    struct stat standard = {};
    return ::fstat(STDOUT_FILENO, &standard) == 0 && file.st_dev == standard.st_dev &&
           file.st_ino == standard.st_ino;
}

// The end of a chain of links, which need not be there. The standard library has this for files
// that exist alone.
std::string endOfLinks(std::string path) {
    std::error_code error;
    for (int links = 0; links < mostLinks; ++links) {
        const fs::path next = fs::read_symlink(path, error);
        if (error)
            break; // no link
        path = (fs::path(path).parent_path() / next).string();
    }
    return path;
}

// A short name of its own, because the target's may already be as long as a name can be. The number
// differs between machines that share the folder too, where process numbers may not.
std::string temporaryName() {
    std::random_device random;
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), ".tarn-videoio-%08x%08x.part", random(), random());
    return text.data();
}

// A folder remembers its names at the next flush of its own. Not every file system can; the content
// is safe then all the same.
void flushFolder(const std::string& file) {
    const fs::path folder = fs::path(file).parent_path();
    const int opened =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0)
        return;
    static_cast<void>(::fsync(opened));
    ::close(opened);
}

} // namespace

AtomicFile::AtomicFile(std::string path, Existing existing)
    : name(std::move(path)), mayReplace(existing == Existing::Replace), owner(::getpid()) {
    findTarget();
    if (!direct)
        openTemporary();
    require(descriptor >= 0, 20);
}

AtomicFile::~AtomicFile() {
    for (const int open : {descriptor, memory})
        if (open >= 0)
            ::close(open);
    if (!direct && !temporary.empty() && owner == ::getpid())
        ::unlink(temporary.c_str());
}

/// Finds out what the name stands for, and opens what is written to directly.
void AtomicFile::findTarget() {
    struct stat existing = {};
    const bool exists = ::stat(name.c_str(), &existing) == 0;
    require(exists || errno == ENOENT, 30);
    if (exists && !mayReplace) {
        errno = EEXIST;
        require(false, 31);
    }
    if (exists && isStandardOutput(existing)) {
        direct = true; // "/dev/stdout" may stand for a regular file
        descriptor = ::dup(STDOUT_FILENO);
        return;
    }
    std::error_code error;
    target = exists ? fs::canonical(name, error).string() : endOfLinks(name);
    // A link may lead to a file that has no name, such as one in memory.
    if (exists && (error || !S_ISREG(existing.st_mode))) {
        direct = true;
        descriptor = ::open(name.c_str(), O_WRONLY | O_CLOEXEC);
    } else if (exists) {
        permissions = existing.st_mode & permissionBits;
    }
}

void AtomicFile::openTemporary() {
    const fs::path folder = fs::path(target).parent_path();
    do {
        temporary = (folder / temporaryName()).string();
        descriptor =
            ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, readableAndWritable);
    } while (descriptor < 0 && errno == EEXIST);
    if (descriptor < 0)
        temporary.clear();
}

void AtomicFile::write(const void* data, size_t size) {
    const auto* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::write(descriptor, next, size);
        if (written < 0 && errno == EINTR)
            continue;
        require(written >= 0, 40);
        next += written;
        size -= static_cast<size_t>(written);
    }
}

void AtomicFile::makeWay() {
    if (direct) {
        memory = ::memfd_create("tarn-videoio", MFD_CLOEXEC);
        require(memory >= 0, 51);
        temporary = "/proc/self/fd/" + std::to_string(memory);
        return;
    }
    require(::unlink(temporary.c_str()) == 0, 50);
    closeDescriptor();
}

void AtomicFile::publish(Flush flush) {
    if (direct) {
        passOnMemory();
        closeDescriptor();
        return;
    }
    if (permissions != 0) // a file system without permissions refuses, and needs none
        static_cast<void>(::chmod(temporary.c_str(), permissions));
    if (flush == Flush::ToDisk)
        flushToDisk();
    closeDescriptor();
    require(rename(), 60);
    temporary.clear();
    if (flush == Flush::ToDisk)
        flushFolder(target);
}

void AtomicFile::passOnMemory() {
    std::array<char, size_t{64} << 10> block;
    for (off_t offset = 0; memory >= 0;) {
        const ssize_t count = ::pread(memory, block.data(), block.size(), offset);
        require(count >= 0, 61);
        if (count == 0)
            return;
        write(block.data(), static_cast<size_t>(count));
        offset += count;
    }
}

void AtomicFile::flushToDisk() {
    if (descriptor < 0) // another has written it, by its name
        descriptor = ::open(temporary.c_str(), O_RDONLY | O_CLOEXEC);
    require(descriptor >= 0, 70);
    const bool done = ::fsync(descriptor) == 0;
    require(done || errno == EINVAL || errno == ENOSYS, 71); // not every file system can
}

void AtomicFile::closeDescriptor() {
    if (descriptor < 0)
        return;
    const int closed = ::close(descriptor);
    descriptor = -1;
    require(closed == 0, 80);
}

// A second name is given only where there is none, so that a file that has appeared meanwhile is
// safe. Some file systems know no second names: a look has to do there.
bool AtomicFile::rename() const {
    if (mayReplace)
        return ::rename(temporary.c_str(), target.c_str()) == 0;
    if (::link(temporary.c_str(), target.c_str()) == 0)
        return ::unlink(temporary.c_str()) == 0;
    if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS)
        return false;
    if (::access(target.c_str(), F_OK) == 0) {
        errno = EEXIST;
        return false;
    }
    return ::rename(temporary.c_str(), target.c_str()) == 0;
}

void AtomicFile::require(bool done, int place) const {
    if (!done)
        detail::checkResult(AVERROR(errno), {"AtomicFile", place}, name);
}

} // namespace tio::ffmpeg
