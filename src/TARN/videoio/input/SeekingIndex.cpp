#include "input/SeekingIndex.h"

#include "base/checks.h"
#include "base/fileHandle.h"
#include "base/ticks.h"
#include "ffmpeg_compat.h"

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

namespace tio::ffmpeg::detail {

namespace {

using AfterFailure = SeekingIndex::AfterFailure;

/// The file while it is open.
class File {
public:
    File(const std::string& name, const char* mode, AfterFailure whatThen)
        : path(name), afterFailure(whatThen), file(std::fopen(name.c_str(), mode)) {
        if (!file)
            failPlainly(message("Could not open "));
    }

    void require(bool condition, const char* prefix, const char* expression, int number) {
        if (condition)
            return;
        if (afterFailure == AfterFailure::LeaveOpen)
            static_cast<void>(file.release());
        failAssertion(message(prefix), expression, {"InputStream", number});
    }

    /// Number of bytes, counted in 32 bits whatever the platform: larger files are refused.
    [[nodiscard]] int32_t byteCount() {
        require(std::fseek(file.get(), 0, SEEK_END) == 0, "Could not seek to the end of ",
                "fseek(f, 0, 2) == 0", 254);
        const long position = std::ftell(file.get());
        const bool fits = position >= 0 && position <= std::numeric_limits<int32_t>::max();
        require(fits, "Could not tell ", "byteCount != (-1)", 256);
        require(std::fseek(file.get(), 0, SEEK_SET) == 0, "Could not seek to the start of ",
                "fseek(f, 0, 0) == 0", 258);
        return static_cast<int32_t>(position);
    }

    [[nodiscard]] size_t read(int64_t* values, size_t count) const {
        return std::fread(values, sizeof(int_fast64_t), count, file.get());
    }

    [[nodiscard]] size_t write(const int64_t* values, size_t count) const {
        return std::fwrite(values, sizeof(int_fast64_t), count, file.get());
    }

    /// False when what was buffered could not be written.
    bool close() { return std::fclose(file.release()) == 0; }

private:
    [[nodiscard]] std::string message(const char* prefix) const {
        return prefix + ('"' + path + '"');
    }

    const std::string& path;
    AfterFailure afterFailure;
    FileHandle file;
};

static_assert(sizeof(int_fast64_t) == sizeof(int64_t), "the file holds 64-bit integers");

bool makeRoom(std::vector<int64_t>& values, size_t count) {
    try {
        values.resize(count);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

} // namespace

void SeekingIndex::begin() {
    lastPts = AV_NOPTS_VALUE;
}

void SeekingIndex::record(const Entry& entry, bool seeksByPts) {
    if (entry.discarded || entry.pts == lastPts)
        return;
    lastPts = entry.pts;
    times.push_back(entry.pts);
    // Demuxers that seek by dts land too late for a pts; going back by the largest distance between
    // the two makes up for it.
    if (!seeksByPts)
        maxPtsDtsDifference =
            std::max(maxPtsDtsDifference, wrappingDifference(entry.pts, entry.dts));
}

void SeekingIndex::sort() {
    std::sort(times.begin(), times.end());
}

void SeekingIndex::store(const std::string& path, AfterFailure afterFailure) const {
    File file(path, "wb", afterFailure);
    file.require(file.write(&maxPtsDtsDifference, 1) == 1, "Could not write pts difference to ",
                 "fwrite(&maxPtsDtsDifference, sizeof(int_fast64_t), 1, f) == 1", 223);
    bool written = file.write(times.data(), times.size()) == times.size();
    // Small files are written when they are closed, so the close may be what fails.
    if (written)
        written = file.close();
    file.require(written, "Could not write seek buffer to ",
                 "fwrite(frameNumToTimestamp.data(), sizeof(int_fast64_t), count, f) == count",
                 228);
}

void SeekingIndex::load(const std::string& path, AfterFailure afterFailure) {
    File file(path, "rb", afterFailure);
    const int32_t byteCount = file.byteCount();
    file.require(byteCount % static_cast<int32_t>(sizeof(int_fast64_t)) == 0,
                 "Invalid seeking index size in ", "byteCount % sizeof(int_fast64_t) == 0", 260);
    file.require(byteCount > 0, "Empty seeking index size in ", "byteCount > 0", 262);
    file.require(file.read(&maxPtsDtsDifference, 1) == 1, "Could not read pts difference from ",
                 "fread(&maxPtsDtsDifference, sizeof(int_fast64_t), 1, f) == 1", 265);
    const size_t count = static_cast<size_t>(byteCount) / sizeof(int_fast64_t) - 1;
    file.require(makeRoom(times, count) && file.read(times.data(), count) == count,
                 "Could not read seek buffer from ",
                 "fread(frameNumToTimestamp.data(), sizeof(int_fast64_t), count, f) == count", 270);
    file.close();

    int64_t last = std::numeric_limits<int64_t>::min();
    for (const int64_t element : times) {
        file.require(last < element, "Seek data is not valid in ", "last < element", 277);
        last = element;
    }
}

} // namespace tio::ffmpeg::detail
