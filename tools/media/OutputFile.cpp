#include "media/OutputFile.h"

#include "terminal/Failure.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tio::tool {

namespace fs = std::filesystem;

namespace {

constexpr mode_t readableAndWritable = 0666; // less what the umask takes away

std::string reasonOfErrno() {
    return std::generic_category().message(errno);
}

bool isStandardOutput(const std::string& path) {
    struct stat named = {};
    struct stat standard = {};
    return ::stat(path.c_str(), &named) == 0 && ::fstat(STDOUT_FILENO, &standard) == 0 &&
           named.st_dev == standard.st_dev && named.st_ino == standard.st_ino;
}

// The name that a rename may take over: that of a regular file, or one that is free. Links are
// followed so that they stay; one that leads nowhere, or to a file without a name, is kept too.
std::optional<std::string> replaceableTarget(const std::string& path,
                                             const fs::file_status& existing) {
    std::error_code error;
    if (!fs::exists(existing) && !fs::is_symlink(fs::symlink_status(path, error)))
        return path;
    const fs::path target = fs::canonical(path, error);
    if (error || !fs::is_regular_file(existing))
        return std::nullopt;
    return target;
}

} // namespace

OutputFile::OutputFile(std::string name) : path(std::move(name)) {
    std::error_code unreadable; // shows when the file is opened
    const fs::file_status existing = fs::status(path, unreadable);
    if (fs::is_directory(existing))
        throw Failure(ExitCode::Output, path, "Is a directory");
    if (isStandardOutput(path)) {
        descriptor = ::dup(STDOUT_FILENO); // "/dev/stdout" may stand for a regular file
    } else if (const auto replaceable = replaceableTarget(path, existing)) {
        target = *replaceable;
        openTemporary();
    } else {
        descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    }
    require(descriptor >= 0);
}

OutputFile::~OutputFile() {
    if (descriptor >= 0)
        ::close(descriptor);
    if (!temporary.empty())
        ::unlink(temporary.c_str());
}

// A short name of its own, because the target's may already be as long as a name can be. The number
// passes over what a program of the same process id may have left behind when it was killed.
void OutputFile::openTemporary() {
    const fs::path folder = fs::path(target).parent_path();
    for (int number = 0; descriptor < 0; ++number) {
        temporary = folder / (".tarn-videoio-" + std::to_string(::getpid()) + '-' +
                              std::to_string(number) + ".part");
        cleanup.emplace(temporary);
        descriptor =
            ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, readableAndWritable);
        if (descriptor >= 0)
            return;
        const int reason = errno;
        cleanup.reset();
        temporary.clear(); // not ours, so not ours to remove
        errno = reason;
        if (reason != EEXIST)
            return;
    }
}

void OutputFile::write(const void* data, size_t size) {
    const char* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::write(descriptor, next, size);
        if (written < 0 && errno == EINTR)
            continue;
        require(written >= 0);
        next += written;
        size -= static_cast<size_t>(written);
    }
}

void OutputFile::makeWay() {
    if (temporary.empty())
        return;
    require(::unlink(temporary.c_str()) == 0);
    closeDescriptor();
}

void OutputFile::closeDescriptor() {
    if (descriptor < 0)
        return;
    const int closed = ::close(descriptor);
    descriptor = -1;
    require(closed == 0);
}

void OutputFile::publish() {
    closeDescriptor();
    if (temporary.empty())
        return;
    require(::rename(temporary.c_str(), target.c_str()) == 0);
    temporary.clear();
    cleanup.reset();
}

void OutputFile::require(bool done) const {
    if (!done)
        throw Failure(ExitCode::Output, path, reasonOfErrno());
}

void makeFolder(const std::string& path) {
    std::error_code error;
    fs::create_directories(path, error);
    // An existing folder is no error, but neither is, to this function, a file in its place.
    if (!error && !fs::is_directory(path))
        error = std::make_error_code(std::errc::not_a_directory);
    if (error)
        throw Failure(ExitCode::Output, path, error.message());
}

} // namespace tio::tool
