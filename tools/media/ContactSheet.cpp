#include "media/ContactSheet.h"

#include "media/ImageWriter.h"

#include <algorithm>

namespace tio::tool {

namespace {

using Picture = tio::PixelFormat::RgbImage;
using Scale = tio::Rational<1, int>;

constexpr int gap = 8; // pixels between pictures and around them
const Colour background(24, 24, 24);
const Colour ink(255, 255, 255);

// A picture of twelve lines of text, but never text that cannot be read.
int lineHeightFor(int height) {
    return std::clamp(height / 12, 11, 32);
}

Picture filled(int rows, int cols, Colour colour) {
    Picture picture(tio::Vec<int, 2>(rows, cols));
    std::fill_n(picture.data(), picture.count, colour);
    return picture;
}

/// The largest scale at which a picture fits.
Scale fittingScale(const ffmpeg::Image& picture, int height, int width) {
    const bool wide =
        int64_t{picture.width()} * height >= int64_t{picture.height()} * width; // for its place
    return wide ? Scale(width, picture.width()) : Scale(height, picture.height());
}

Picture scaled(const ffmpeg::Image& picture, Scale scale) {
    const tio::PixelFormat::Plane plane(tio::Vec<int, 2>(picture.height(), 3 * picture.width()),
                                        rgbOf(picture).storage);
    const bool smaller = scale <= Scale(1);
    return tio::PixelFormat::RGB::Rgb(
        {plane}, scale, smaller ? tio::Resize::Algorithm::Area : tio::Resize::Algorithm::Bilinear);
}

void paste(const Picture& picture, Picture& target, int top, int left) {
    const int rows = std::min(picture.rows(), target.rows() - top);
    const int cols = std::min(picture.cols(), target.cols() - left);
    for (int row = 0; row < rows; ++row)
        std::copy_n(&picture(row, 0), cols, &target(top + row, left));
}

void darken(Picture& picture, int top, int left, int rows, int cols) {
    for (int row = top; row < top + rows; ++row) {
        for (int col = left; col < left + cols; ++col) {
            for (uint8_t& value : picture(row, col))
                value /= 3;
        }
    }
}

} // namespace

int ContactSheet::cellWidth(const Layout& layout) {
    return (layout.width - gap) / layout.columns - gap;
}

ContactSheet::ContactSheet(const Layout& chosen) : layout(chosen), width(cellWidth(chosen)) {}

// A place is never taller than twice its width, or a picture of one column would make the sheet
// endless.
void ContactSheet::begin(const ffmpeg::Image& first) {
    const int64_t natural = int64_t{width} * first.height() / first.width();
    height = static_cast<int>(std::clamp<int64_t>(natural, 1, int64_t{2} * width));
    lettering.emplace(lineHeightFor(height));
    const auto rows = static_cast<int>((layout.cells + layout.columns - 1) / layout.columns);
    sheet = filled(gap + rows * (height + gap), layout.width, background);
}

void ContactSheet::add(const ffmpeg::Image& picture, const std::string& label) {
    if (added == 0)
        begin(picture);
    const Picture small = scaled(picture, fittingScale(picture, height, width));
    const auto row = static_cast<int>(added / layout.columns);
    const auto col = static_cast<int>(added % layout.columns);
    const int top = gap + row * (height + gap);
    const int left = gap + col * (width + gap);
    paste(small, sheet, top + std::max(0, height - small.rows()) / 2,
          left + std::max(0, width - small.cols()) / 2);
    writeLabel(top, left, label);
    ++added;
}

void ContactSheet::writeLabel(int top, int left, const std::string& label) {
    constexpr int margin = 4;
    const int lineHeight = std::min(lineHeightFor(height), height);
    const int labelWidth = std::min(width, lettering->widthOf(label) + 2 * margin);
    const int labelTop = top + height - lineHeight;
    darken(sheet, labelTop, left, lineHeight, labelWidth);
    lettering->write(sheet, labelTop, left + margin, label, ink);
}

} // namespace tio::tool
