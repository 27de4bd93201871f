#include "base/checks.h"

#include <TARN/videoio/InputStream.h>

#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

// The index file of an InputStream. Every step has a message of its own, in a fixed order.
//
// Kept: after a failure between opening and closing, the file stays open, and whatever was read or
// written up to then stays in place. Callers that store to a full disk or load a damaged file find
// the message; docs/behaviour.md says what to do next.

namespace tio::ffmpeg {

namespace {

/// The index file while it is open.
class IndexFile {
public:
    IndexFile(const std::string& name, const char* mode)
        : path(name), file(std::fopen(name.c_str(), mode)) {
        if (file == nullptr)
            detail::failPlainly(message("Could not open "));
    }

    void require(bool condition, const char* prefix, const char* expression, int number) const {
        if (!condition)
            detail::failAssertion(message(prefix), expression, {"InputStream", number});
    }

    /// Number of bytes, counted in 32 bits whatever the platform: larger files are refused.
    [[nodiscard]] int32_t byteCount() const {
        require(std::fseek(file, 0, SEEK_END) == 0, "Could not seek to the end of ",
                "fseek(f, 0, 2) == 0", 254);
        const long position = std::ftell(file);
        const bool fits = position >= 0 && position <= std::numeric_limits<int32_t>::max();
        require(fits, "Could not tell ", "byteCount != (-1)", 256);
        require(std::fseek(file, 0, SEEK_SET) == 0, "Could not seek to the start of ",
                "fseek(f, 0, 0) == 0", 258);
        return static_cast<int32_t>(position);
    }

    [[nodiscard]] size_t read(int64_t* values, size_t count) const {
        return std::fread(values, sizeof(int_fast64_t), count, file);
    }

    [[nodiscard]] size_t write(const int64_t* values, size_t count) const {
        return std::fwrite(values, sizeof(int_fast64_t), count, file);
    }

    /// False when what was buffered could not be written.
    bool close() { return std::fclose(file) == 0; }

private:
    [[nodiscard]] std::string message(const char* prefix) const {
        return prefix + ('"' + path + '"');
    }

    const std::string& path;
    std::FILE* file;
};

static_assert(sizeof(int_fast64_t) == sizeof(int64_t), "the file holds 64-bit integers");

} // namespace

void InputStream::storeSeekingIndex(std::string path) const {
    buildIndexWhenMissing();
    IndexFile file(path, "wb");
    file.require(file.write(&maxPtsDtsDifference, 1) == 1, "Could not write pts difference to ",
                 "fwrite(&maxPtsDtsDifference, sizeof(int_fast64_t), 1, f) == 1", 223);
    const size_t count = frameNumToTimestamp.size();
    bool written = file.write(frameNumToTimestamp.data(), count) == count;
    // Small files are written when they are closed, so the close may be what fails.
    if (written)
        written = file.close();
    file.require(written, "Could not write seek buffer to ",
                 "fwrite(frameNumToTimestamp.data(), sizeof(int_fast64_t), count, f) == count",
                 228);
}

void InputStream::loadSeekingIndex(std::string path) {
    IndexFile file(path, "rb");
    const int32_t byteCount = file.byteCount();
    file.require(byteCount % static_cast<int32_t>(sizeof(int_fast64_t)) == 0,
                 "Invalid seeking index size in ", "byteCount % sizeof(int_fast64_t) == 0", 260);
    file.require(byteCount > 0, "Empty seeking index size in ", "byteCount > 0", 262);
    file.require(file.read(&maxPtsDtsDifference, 1) == 1, "Could not read pts difference from ",
                 "fread(&maxPtsDtsDifference, sizeof(int_fast64_t), 1, f) == 1", 265);
    const size_t count = static_cast<size_t>(byteCount) / sizeof(int_fast64_t) - 1;
    frameNumToTimestamp.resize(count);
    file.require(file.read(frameNumToTimestamp.data(), count) == count,
                 "Could not read seek buffer from ",
                 "fread(frameNumToTimestamp.data(), sizeof(int_fast64_t), count, f) == count", 270);
    file.close();

    int64_t last = std::numeric_limits<int64_t>::min();
    for (const int64_t element : frameNumToTimestamp) {
        file.require(last < element, "Seek data is not valid in ", "last < element", 277);
        last = element;
    }
    seekToFrame(0);
}

} // namespace tio::ffmpeg
