#include "media/PipeSpool.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tio::tool {

namespace {

int64_t check(int64_t result) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category());
    return result;
}

/// A file that is gone with its last user.
class UnnamedFile {
public:
    UnnamedFile() {
        std::string name = std::filesystem::temp_directory_path() / "tarn-videoio-XXXXXX";
        descriptor = static_cast<int>(check(::mkostemp(name.data(), O_CLOEXEC)));
        ::unlink(name.c_str());
    }
    explicit UnnamedFile(int opened) : descriptor(static_cast<int>(check(opened))) {}
    ~UnnamedFile() { ::close(descriptor); }
    UnnamedFile(const UnnamedFile&) = delete;
    UnnamedFile& operator=(const UnnamedFile&) = delete;

    [[nodiscard]] int number() const noexcept { return descriptor; }

private:
    int descriptor;
};

void writeAll(int descriptor, const char* from, int64_t count) {
    while (count > 0) {
        const int64_t written = check(::write(descriptor, from, static_cast<size_t>(count)));
        from += written;
        count -= written;
    }
}

class SpoolStream : public ffmpeg::ByteStream {
public:
    explicit SpoolStream(std::shared_ptr<const UnnamedFile> spooled) : file(std::move(spooled)) {}

    int64_t read(uint8_t* to, int64_t count) override {
        const int64_t got =
            check(::pread(file->number(), to, static_cast<size_t>(count), position));
        position += got;
        return got;
    }
    void seek(int64_t target) override { position = target; }
    int64_t size() override { return check(::lseek(file->number(), 0, SEEK_END)); }

private:
    std::shared_ptr<const UnnamedFile> file;
    int64_t position = 0;
};

} // namespace

ffmpeg::Source spoolPipe(const std::string& path) {
    const auto file = std::make_shared<UnnamedFile>();
    const UnnamedFile pipe(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 1 << 16> block;
    while (const int64_t count = check(::read(pipe.number(), block.data(), block.size())))
        writeAll(file->number(), block.data(), count);
    return ffmpeg::Source::streams([file] { return std::make_unique<SpoolStream>(file); }, path);
}

} // namespace tio::tool
