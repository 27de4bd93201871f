#include "exact/index/SourceIdentity.h"

#include "base/checks.h"
#include "base/fileHandle.h"
#include "base/hash.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace tio::ffmpeg::detail {

namespace {

/// The path that FFmpeg reads for a URL, which may begin with the scheme of plain files.
std::string pathOf(const std::string& url) {
    constexpr std::string_view scheme = "file:";
    return url.compare(0, scheme.size(), scheme) == 0 ? url.substr(scheme.size()) : url;
}

bool isFileWithBytes(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_size > 0;
}

/// A file whose blocks are hashed.
class Source {
public:
    explicit Source(const std::string& givenUrl)
        : url(givenUrl), file(std::fopen(pathOf(url).c_str(), "rb")) {
        if (file == nullptr)
            fail(std::generic_category().message(errno));
        require(::fstat(::fileno(file.get()), &status) == 0 && isFileWithBytes(status));
    }

    [[nodiscard]] SourceIdentity identity() const {
        SourceIdentity found = blocksLike(static_cast<uint64_t>(status.st_size));
        found.seconds = status.st_mtim.tv_sec;
        found.nanoseconds = status.st_mtim.tv_nsec;
        return found;
    }

    // Blocks are as large as they were in a file of `knownSize`, so that a file that has only grown
    // still has the first one in common with what it was.
    [[nodiscard]] SourceIdentity blocksLike(uint64_t knownSize) const {
        constexpr uint64_t largestBlock = 65536;
        const uint64_t block = std::min(largestBlock, std::max<uint64_t>(knownSize / 2, 1));
        SourceIdentity found;
        found.size = static_cast<uint64_t>(status.st_size);
        found.firstBlock = hashAt(0, block);
        found.lastBlock = hashAt(found.size > block ? found.size - block : 0, block);
        return found;
    }

private:
    [[nodiscard]] uint64_t hashAt(uint64_t offset, uint64_t count) const {
        std::vector<uint8_t> bytes(count);
        require(std::fseek(file.get(), static_cast<long>(offset), SEEK_SET) == 0);
        const size_t got = std::fread(bytes.data(), 1, bytes.size(), file.get());
        return hashBytes(bytes.data(), got);
    }

    void require(bool condition) const {
        if (!condition)
            fail("it is no file that can be read");
    }

    [[noreturn]] void fail(const std::string& reason) const {
        failPlainly("Could not identify \"" + url + "\": " + reason);
    }

    const std::string& url;
    FileHandle file;
    struct stat status {};
};

} // namespace

bool isPipe(const std::string& url) {
    struct stat status {};
    return ::stat(pathOf(url).c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

SourceIdentity SourceIdentity::of(const std::string& url) {
    return Source(url).identity();
}

SourceIdentity SourceIdentity::ofAny(const std::string& url) {
    struct stat status {};
    const bool file = ::stat(pathOf(url).c_str(), &status) == 0 && isFileWithBytes(status);
    return file ? of(url) : SourceIdentity{};
}

SourceIdentity::Likeness SourceIdentity::compareWith(const std::string& url) const {
    const Source source(url);
    const SourceIdentity now = source.identity();
    const SourceIdentity blocks = source.blocksLike(size);
    const bool sameFirst = blocks.firstBlock == firstBlock;
    const bool sameLast = blocks.lastBlock == lastBlock;
    if (!sameFirst && !sameLast)
        return Likeness::Other;
    const bool same = sameFirst && sameLast && now.size == size && now.seconds == seconds &&
                      now.nanoseconds == nanoseconds;
    return same ? Likeness::Same : Likeness::Changed;
}

} // namespace tio::ffmpeg::detail
