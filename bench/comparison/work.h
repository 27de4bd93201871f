#pragma once

#include <cstdint>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

/// @file
/// What the programs have in common that do the same work by different libraries, one task a
/// process: PROGRAM TASK FILE [OUTPUT]. Each prints how many pictures, samples or packets it dealt
/// with, so that it shows when two did not do the same.

namespace tio::bench {

struct Job {
    std::string source;
    std::string target;
};

using Tasks = std::map<std::string, std::function<int64_t(const Job&)>>;

inline int runTask(int argc, char** argv, const Tasks& tasks) {
    const auto task = argc >= 3 ? tasks.find(argv[1]) : tasks.end();
    if (task == tasks.end())
        return 2; // this library does no such work
    try {
        std::printf("%lld\n", static_cast<long long>(
                                  task->second({argv[2], argc > 3 ? argv[3] : std::string()})));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}

// What is encoded, the same for all: a file of pictures of one size eight times, and a long sound.
constexpr int rawWidth = 1280;
constexpr int rawHeight = 720;
constexpr size_t rawPictureBytes = size_t{3} * rawWidth * rawHeight;
constexpr int rawRounds = 8;
constexpr int soundRate = 48000;
constexpr int soundChannels = 2;

// How often a still image is read or written.
constexpr int imageRepeats = 10;

// Rows and columns of a small picture, and how many pictures are a batch.
constexpr int smallHeight = 224;
constexpr int smallWidth = 398;
constexpr int batchSize = 32;

/// The pictures of a batch, spread over a clip with so many.
inline std::vector<int64_t> framesOfBatch(int64_t count) {
    std::vector<int64_t> frames;
    for (int64_t i = 0; i < batchSize; ++i)
        frames.push_back(i * count / batchSize);
    return frames;
}

/// The bytes of a file, mapped: to read them first would be work that is none of a library's.
class Bytes {
public:
    explicit Bytes(const std::string& path) {
        const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status = {};
        if (file >= 0 && ::fstat(file, &status) == 0) {
            length = static_cast<size_t>(status.st_size);
            // More than the file, because swscale reads a little past the last picture; writable,
            // as some interfaces seem to want.
            mapped = ::mmap(nullptr, length + spare, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (mapped != MAP_FAILED)
                mapped = ::mmap(mapped, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED,
                                file, 0);
        }
        ::close(file);
        if (mapped == MAP_FAILED)
            throw std::runtime_error("could not map " + path);
    }
    ~Bytes() { ::munmap(mapped, length + spare); }
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;

    [[nodiscard]] uint8_t* data() const noexcept { return static_cast<uint8_t*>(mapped); }
    [[nodiscard]] size_t size() const noexcept { return length; }

private:
    static constexpr size_t spare = 1 << 16;

    void* mapped = MAP_FAILED;
    size_t length = 0;
};

/// How many pictures a file of them holds.
inline int rawPicturesIn(const Bytes& raw) {
    return static_cast<int>(raw.size() / rawPictureBytes);
}

/// The frames that are sought, of a clip with so many: far apart, and the same in each run.
inline std::vector<int64_t> framesToSeek(int64_t count) {
    constexpr int wanted = 16;
    std::vector<int64_t> frames;
    int64_t frame = 0;
    for (int i = 0; i < wanted; ++i) {
        frame = (frame + count * 5 / 8 + 1) % count;
        frames.push_back(frame);
    }
    return frames;
}

} // namespace tio::bench
