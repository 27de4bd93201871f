#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

/// @file
/// The units that H.264 and HEVC packets consist of.

namespace tio::ffmpeg::detail {

/// A unit without what separates it from the next.
struct NalUnit {
    const uint8_t* data;
    size_t size; ///< at least 1
};

/// Finds the next start code 0, 0, 1 from `from` on; `end` when there is none.
[[nodiscard]] inline const uint8_t* findStartCode(const uint8_t* from, const uint8_t* end) {
    for (; end - from >= 3; ++from) {
        from =
            static_cast<const uint8_t*>(std::memchr(from, 0, static_cast<size_t>(end - from - 2)));
        if (from == nullptr)
            break;
        if (from[1] == 0 && from[2] == 1)
            return from;
    }
    return end;
}

/// Calls `visit` with each unit until it returns false. `lengthSize` is the number of bytes of the
/// length in front of each; 0 for units after start codes.
template <typename Visit>
void forEachNalUnit(const uint8_t* data, size_t size, size_t lengthSize, Visit&& visit) {
    const uint8_t* const end = data + size;
    if (lengthSize == 0) {
        for (const uint8_t* start = findStartCode(data, end); end - start > 3;) {
            const uint8_t* const next = findStartCode(start + 3, end);
            if (!visit(NalUnit{start + 3, static_cast<size_t>(next - start - 3)}))
                return;
            start = next;
        }
        return;
    }
    while (static_cast<size_t>(end - data) > lengthSize) {
        size_t length = 0;
        for (size_t i = 0; i < lengthSize; ++i)
            length = length << 8 | *data++;
        length = std::min(length, static_cast<size_t>(end - data));
        if (length > 0 && !visit(NalUnit{data, length}))
            return;
        data += length;
    }
}

/// Whether the lengths in front of units lead to the end of the data. In a packet that was cut or
/// overwritten they lead beyond it.
[[nodiscard]] inline bool lengthsFit(const uint8_t* data, size_t size, size_t lengthSize) {
    while (lengthSize > 0 && size >= lengthSize) {
        size_t length = 0;
        for (size_t i = 0; i < lengthSize; ++i)
            length = length << 8 | data[i];
        if (length > size - lengthSize)
            return false;
        data += lengthSize + length;
        size -= lengthSize + length;
    }
    return true;
}

/// The first bytes of a unit's content, up to `limit`, without the 3 that keeps start codes out.
[[nodiscard]] inline std::vector<uint8_t> unescaped(const NalUnit& unit, size_t limit) {
    std::vector<uint8_t> content;
    unsigned zeros = 0;
    for (size_t i = 0; i < unit.size && content.size() < limit; ++i) {
        const uint8_t byte = unit.data[i];
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        content.push_back(byte);
    }
    return content;
}

} // namespace tio::ffmpeg::detail
