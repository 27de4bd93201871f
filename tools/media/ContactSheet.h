#pragma once

#include "media/Lettering.h"

#include <TARN/imgproc/PixelFormat.h>
#include <TARN/videoio/Image.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tio::tool {

/// Small pictures in rows and columns, each with a line of text on it.
class ContactSheet {
public:
    /// How the sheet is divided.
    struct Layout {
        int columns;
        int width;     ///< of the sheet in pixels
        int64_t cells; ///< pictures that will be added
    };

    /// Columns of pixels that every picture gets.
    /// @returns less than 1 where the sheet is too narrow
    [[nodiscard]] static int cellWidth(const Layout& layout);

    explicit ContactSheet(const Layout& layout);

    /// Puts the next picture, 8-bit RGB, in its place. The first one decides the shape of all
    /// places.
    /// @throws std::runtime_error when no font is installed
    void add(const ffmpeg::Image& picture, const std::string& label);

    [[nodiscard]] int64_t count() const { return added; }

    /// The sheet, once there is a picture on it.
    [[nodiscard]] const tio::PixelFormat::RgbImage& image() const { return sheet; }

private:
    void begin(const ffmpeg::Image& first);
    void writeLabel(int top, int left, const std::string& label);

    Layout layout;
    int width;      // of a place
    int height = 0; // of a place
    int64_t added = 0;
    std::optional<Lettering> lettering;
    tio::PixelFormat::RgbImage sheet;
};

} // namespace tio::tool
