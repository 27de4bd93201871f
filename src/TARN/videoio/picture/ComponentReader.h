#pragma once

#include "ffmpeg_compat.h"

#include <cstdint>
#include <vector>

namespace tio::ffmpeg::detail {

/// The samples of one component of a picture, row by row, whatever the pixel format.
/// Thread rule: used by one thread at a time.
class ComponentReader {
public:
    /// @param component  by FFmpeg's numbers: Y, Cb, Cr or R, G, B
    ComponentReader(const AVPixFmtDescriptor& format, int component, int width, int height);

    [[nodiscard]] int columns() const noexcept { return columnCount; }
    [[nodiscard]] int rows() const noexcept { return rowCount; }
    [[nodiscard]] int depth() const noexcept { return parts.depth; }

    /// Whether samples are bytes that follow each other.
    [[nodiscard]] bool hasPlainBytes() const noexcept { return layout == Layout::Bytes; }

    /// With plain bytes: where a row lies in the picture.
    [[nodiscard]] const uint8_t* bytes(const AVFrame& picture, int row) const noexcept;

    /// The row as float numbers.
    void read(const AVFrame& picture, int row, float* out);

    /// Adds the row, times a weight, to a sum that is 0 where this is the `first`.
    void add(const AVFrame& picture, int row, float weight, bool first, float* sum);

private:
    enum class Layout {
        Bytes,       ///< one after the other
        Words,       ///< of 16 bits in the machine's order, nothing else in them
        SpreadBytes, ///< among those of other components
        Other,
    };
    [[nodiscard]] const uint16_t* words(const AVFrame& picture, int row);
    [[nodiscard]] Layout findLayout() const noexcept;

    const AVPixFmtDescriptor* format;
    int component;
    AVComponentDescriptor parts;
    int columnCount;
    int rowCount;
    Layout layout;
    std::vector<uint16_t> unpacked; // a row
};

} // namespace tio::ffmpeg::detail
