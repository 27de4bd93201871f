#pragma once

#include <TARN/imgproc/PixelFormat.h>

#include <cstdint>
#include <memory>
#include <string>

namespace tio::tool {

using Colour = tio::Vec<uint8_t, 3>;

/// Writes short texts into pictures, in the sans-serif font that the system prefers.
class Lettering {
public:
    /// @param lineHeight  in pixels
    /// @throws std::runtime_error when no font is installed
    explicit Lettering(int lineHeight);
    ~Lettering();
    Lettering(Lettering&&) noexcept;
    Lettering& operator=(Lettering&&) noexcept;

    /// Columns that a text of printable ASCII takes.
    [[nodiscard]] int widthOf(const std::string& text) const;

    /// Writes the text into a line whose upper left corner is at (top, left). What lies outside the
    /// picture is cut off.
    void write(tio::PixelFormat::RgbImage& picture, int top, int left, const std::string& text,
               Colour colour) const;

private:
    struct Font;
    std::unique_ptr<Font> font;
};

} // namespace tio::tool
