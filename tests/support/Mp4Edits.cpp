#include "support/Mp4Edits.h"

#include "support/ByteEdits.h"

#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <stdexcept>
#include <vector>

namespace tio::test {

namespace {

uint32_t read32(const std::vector<uint8_t>& bytes, std::size_t at) {
    uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value = value << 8 | bytes.at(at + i);
    return value;
}

void write32(std::vector<uint8_t>& bytes, std::size_t at, uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i)
        bytes.at(at + i) = static_cast<uint8_t>(value >> (24 - 8 * i));
}

/// The content of a box: the bytes from `begin` to before `end`.
struct Box {
    std::size_t begin;
    std::size_t end;
};

Box findChild(const std::vector<uint8_t>& bytes, Box parent, const std::string& type) {
    std::size_t at = parent.begin;
    while (at + 8 <= parent.end) {
        std::size_t header = 8;
        std::size_t size = read32(bytes, at);
        if (size == 1) { // the size did not fit and follows in 64 bits
            size = static_cast<std::size_t>(read32(bytes, at + 8)) << 32 | read32(bytes, at + 12);
            header = 16;
        }
        if (size < header)
            break;
        if (std::string(bytes.begin() + static_cast<std::ptrdiff_t>(at) + 4,
                        bytes.begin() + static_cast<std::ptrdiff_t>(at) + 8) == type)
            return {at + header, at + size};
        at += size;
    }
    throw std::runtime_error("test media: no box " + type);
}

Box findBox(const std::vector<uint8_t>& bytes, std::initializer_list<const char*> path) {
    Box box{0, bytes.size()};
    for (const char* type : path)
        box = findChild(bytes, box, type);
    return box;
}

bool hasWideTimes(const std::vector<uint8_t>& bytes, Box box) {
    return bytes.at(box.begin) == 1;
}

/// Ticks per second in a movie header or media header.
uint32_t timescaleOf(const std::vector<uint8_t>& bytes, Box header) {
    return read32(bytes, header.begin + (hasWideTimes(bytes, header) ? 20 : 12));
}

} // namespace

void patchTkhdMatrix(const std::string& path, const std::array<int32_t, 9>& matrix) {
    std::vector<uint8_t> bytes = readBytes(path);
    const Box header = findBox(bytes, {"moov", "trak", "tkhd"});
    const std::size_t at = header.begin + (hasWideTimes(bytes, header) ? 52 : 40);
    for (std::size_t i = 0; i < matrix.size(); ++i)
        write32(bytes, at + 4 * i, static_cast<uint32_t>(matrix[i]));
    writeBytes(path, bytes);
}

void setRotation(const std::string& path, int degrees) {
    constexpr int32_t one = 1 << 16;  // 16.16 fixed point
    constexpr int32_t unit = 1 << 30; // 2.30, in the last column
    const std::vector<uint8_t> bytes = readBytes(path);
    // Width and height are the last two values of the track header, in 16.16 like the offsets.
    const Box header = findBox(bytes, {"moov", "trak", "tkhd"});
    const auto width = static_cast<int32_t>(read32(bytes, header.end - 8));
    const auto height = static_cast<int32_t>(read32(bytes, header.end - 4));
    switch (degrees) {
    case 90:
        return patchTkhdMatrix(path, {0, one, 0, -one, 0, 0, height, 0, unit});
    case 180:
        return patchTkhdMatrix(path, {-one, 0, 0, 0, -one, 0, width, height, unit});
    case 270:
        return patchTkhdMatrix(path, {0, -one, 0, one, 0, 0, 0, width, unit});
    default:
        throw std::invalid_argument("test media: rotation is 90, 180 or 270");
    }
}

void cutByEditList(const std::string& path, double from, double length) {
    std::vector<uint8_t> bytes = readBytes(path);
    const uint32_t movieTicks = timescaleOf(bytes, findBox(bytes, {"moov", "mvhd"}));
    const uint32_t mediaTicks =
        timescaleOf(bytes, findBox(bytes, {"moov", "trak", "mdia", "mdhd"}));
    const Box list = findBox(bytes, {"moov", "trak", "edts", "elst"});
    const uint32_t count = read32(bytes, list.begin + 4);
    if (count == 0 || hasWideTimes(bytes, list))
        throw std::runtime_error("test media: edit list without 32-bit entries");
    // Entries before the last are empty ones that delay the start.
    const std::size_t entry = list.begin + 8 + 12 * static_cast<std::size_t>(count - 1);
    const auto skipped = static_cast<uint32_t>(std::llround(from * mediaTicks));
    write32(bytes, entry, static_cast<uint32_t>(std::llround(length * movieTicks)));
    write32(bytes, entry + 4, read32(bytes, entry + 4) + skipped);
    writeBytes(path, bytes);
}

} // namespace tio::test
