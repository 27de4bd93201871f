#include "exact/write/ClipTarget.h"

#include "base/checks.h"
#include "base/unnamedFile.h"
#include "exact/write/SinkChannel.h"
#include "exact/write/fragment/FileSink.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tio::ffmpeg::detail {

namespace fs = std::filesystem;

namespace {

constexpr Location at(int number) {
    return {"ClipTarget", number};
}

/// What is written to directly: a pipe, a device.
class DirectSink : public ByteSink {
public:
    explicit DirectSink(AtomicFile& target) : file(target) {}
    void write(const uint8_t* bytes, std::size_t count) override { file.write(bytes, count); }

private:
    AtomicFile& file;
};

} // namespace

ClipTarget::ClipTarget(const std::string& path, bool overwrite)
    : name(path),
      file(std::in_place, path,
           overwrite ? AtomicFile::Existing::Replace : AtomicFile::Existing::Refuse) {}

ClipTarget::ClipTarget(std::shared_ptr<ByteSink> taker, std::string clip)
    : name(std::move(clip)), sink(std::move(taker)) {}

std::string ClipTarget::folder() const {
    if (!file) {
        std::error_code error;
        const fs::path temporary = fs::temp_directory_path(error);
        checkResult(AVERROR(error.value()), at(1), name);
        return temporary.string();
    }
    const fs::path parent = fs::path(file->pathToWrite()).parent_path();
    return parent.empty() ? "." : parent.string();
}

std::string ClipTarget::pathToWrite() {
    if (file)
        return file->pathToWrite();
    const int opened = openUnnamed(folder());
    checkResult(opened < 0 ? AVERROR(errno) : 0, at(2), name);
    whole.reset(::fdopen(opened, "r"));
    if (!whole) {
        const int reason = AVERROR(errno);
        ::close(opened);
        checkResult(reason, at(3), name);
    }
    return "/proc/self/fd/" + std::to_string(opened);
}

void ClipTarget::complete() {
    if (file)
        file->publish();
    else
        pour();
}

/// Passes the whole clip on to the sink.
void ClipTarget::pour() {
    constexpr std::size_t blockBytes = std::size_t{64} << 10;
    SinkChannel channel(*sink, name);
    std::array<uint8_t, blockBytes> block{};
    std::size_t count = 0;
    while ((count = std::fread(block.data(), 1, block.size(), whole.get())) > 0 &&
           channel.io()->error >= 0)
        avio_write(channel.io(), block.data(), static_cast<int>(count));
    checkResult(std::ferror(whole.get()) != 0 ? AVERROR(EIO) : 0, at(11), name);
    avio_flush(channel.io());
    channel.rethrowFailure();
    checkResult(channel.io()->error, at(12), name);
    whole.reset();
}

std::shared_ptr<ByteSink> ClipTarget::openSink() {
    if (!file)
        return sink;
    if (file->isDirect())
        sink = std::make_shared<DirectSink>(*file);
    else
        sink = std::make_shared<FileSink>(file->pathToWrite(), name);
    return sink;
}

void ClipTarget::show() {
    if (file && !file->isDirect())
        file->publish(AtomicFile::Flush::BySystem);
}

void ClipTarget::close() {
    if (auto* const written = dynamic_cast<FileSink*>(sink.get()); file && written != nullptr)
        written->flushToDisk();
    if (file && file->isDirect())
        file->publish();
    sink.reset();
}

} // namespace tio::ffmpeg::detail
