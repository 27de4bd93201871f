#include "exact/index/SourceBytes.h"

#include "base/checks.h"
#include "base/fileHandle.h"
#include "base/hash.h"
#include "ffmpeg_compat.h"
#include "input/InputAccess.h"
#include "input/SourceRecipe.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

/// The path that FFmpeg reads for a URL, which may begin with the scheme of plain files.
std::string pathOf(const std::string& url) {
    constexpr std::string_view scheme = "file:";
    return url.compare(0, scheme.size(), scheme) == 0 ? url.substr(scheme.size()) : url;
}

/// @param error  the system's number; 0 where it has no objection
[[noreturn]] void failIdentifying(const std::string& name, int error) {
    const std::string text = "Could not identify \"" + name + "\": ";
    if (error == 0)
        failPlainly(text + "it is no file that can be read");
    logFailure(text + std::generic_category().message(error));
    throw Exception(text + std::generic_category().message(error), AVERROR(error));
}

/// A file as a stream.
class FileStream : public ByteStream {
public:
    explicit FileStream(FileHandle opened) : file(std::move(opened)) {}

    int64_t read(uint8_t* to, int64_t count) override {
        const size_t got = std::fread(to, 1, static_cast<size_t>(count), file.get());
        if (got == 0 && std::ferror(file.get()) != 0)
            throw std::system_error(errno, std::generic_category());
        return static_cast<int64_t>(got);
    }

    void seek(int64_t position) override {
        if (std::fseek(file.get(), static_cast<long>(position), SEEK_SET) != 0)
            throw std::system_error(errno, std::generic_category());
    }

    int64_t size() override { return unknownSize; } // SourceBytes has it with the time

private:
    FileHandle file;
};

} // namespace

bool isPipe(const std::string& url) {
    struct stat status {};
    return ::stat(pathOf(url).c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

SourceBytes::SourceBytes(const Source& origin) : source(origin) {
    if (source.kind() == Source::Kind::Url) {
        openFile();
        return;
    }
    owned = openStream(source);
    stream = owned.get();
    try {
        byteCount = stream->size();
    } catch (...) {
        throwStreamFailure(source, std::current_exception());
    }
}

SourceBytes::SourceBytes(const InputFormatContext& opened) : source(InputAccess::sourceOf(opened)) {
    if (ByteChannel* channel = InputAccess::channelOf(opened)) {
        stream = &channel->lend();
        byteCount = channel->byteCount();
    } else {
        openFile();
    }
}

SourceBytes::~SourceBytes() = default;

void SourceBytes::openFile() {
    const std::string path = pathOf(source.name());
    struct stat status {};
    // Asked before it is opened, because opening a pipe would wait for its writer.
    if (::stat(path.c_str(), &status) != 0) {
        unknownBecause = errno;
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        unknownBecause = S_ISDIR(status.st_mode) ? EISDIR : 0;
        return;
    }
    FileHandle file(std::fopen(path.c_str(), "rb"));
    if (!file || ::fstat(::fileno(file.get()), &status) != 0)
        failIdentifying(source.name(), errno);
    owned = std::make_unique<FileStream>(std::move(file));
    stream = owned.get();
    byteCount = status.st_size;
    changed = Time{status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

void SourceBytes::requireKnown() const {
    if (!areKnown())
        failIdentifying(source.name(), unknownBecause);
}

uint64_t SourceBytes::hashAt(uint64_t offset, uint64_t count) {
    const uint64_t from = std::min(offset, size());
    std::vector<uint8_t> block(std::min(count, size() - from));
    if (!block.empty())
        readAll(static_cast<int64_t>(from), block);
    return hashBytes(block.data(), block.size());
}

void SourceBytes::readAll(int64_t offset, std::vector<uint8_t>& block) {
    try {
        stream->seek(offset);
        for (size_t done = 0; done < block.size();) {
            const auto left = static_cast<int64_t>(block.size() - done);
            const int64_t got = stream->read(block.data() + done, left);
            if (got <= 0 || got > left)
                throw tio::Exception("it gave " + std::to_string(got) + " bytes of the " +
                                     std::to_string(left) + " that should follow byte " +
                                     std::to_string(offset + static_cast<int64_t>(done)));
            done += static_cast<size_t>(got);
        }
    } catch (...) {
        throwStreamFailure(source, std::current_exception());
    }
}

} // namespace tio::ffmpeg::detail
