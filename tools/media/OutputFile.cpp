#include "media/OutputFile.h"

#include "terminal/Failure.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <utility>

namespace tio::tool {

namespace fs = std::filesystem;

namespace {

std::string& protectedInput() {
    static std::string path;
    return path;
}

} // namespace

void protectInput(const std::string& url) {
    protectedInput() = url;
}

void requireNotInput(const std::string& path) {
    std::error_code missing; // then it is another file
    if (fs::is_regular_file(path, missing) && fs::equivalent(path, protectedInput(), missing))
        throw Failure(ExitCode::Output, path, "this is the file that is read; name another one");
}

// Signals wait until the temporary file is known to be removed by them. Opening a pipe may take for
// ever, and makes no such file.
OutputFile::OutputFile(std::string name) : path(std::move(name)) {
    requireNotInput(path);
    std::error_code unreadable; // shows when the file is opened
    std::optional<SignalsHeldBack> heldBack;
    if (const auto existing = fs::status(path, unreadable);
        fs::is_regular_file(existing) || !fs::exists(existing))
        heldBack.emplace();
    writing(path, [&] { file.emplace(path); });
    if (!file->isDirect())
        cleanup.emplace(file->pathToWrite());
}

void OutputFile::write(const void* data, size_t size) {
    writing(path, [&] { file->write(data, size); });
}

void OutputFile::makeWay() {
    writing(path, [&] { file->makeWay(); });
}

void OutputFile::publish(Flush flush) {
    writing(path, [&] { file->publish(flush); });
    cleanup.reset();
}

std::string hiddenFile() {
    std::error_code gone; // one that is closed while others are looked at
    for (const auto& entry : fs::directory_iterator("/proc/self/fd", gone)) {
        const fs::path file = fs::read_symlink(entry.path(), gone);
        const int access = ::fcntl(std::atoi(entry.path().filename().c_str()), F_GETFL);
        if (access < 0 || (access & O_ACCMODE) == O_RDONLY) // it may be what is read
            continue;
        if (file.extension() == ".part" && file.filename().string().rfind(".tarn-videoio-", 0) == 0)
            return file;
    }
    return {};
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
