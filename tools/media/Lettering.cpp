#include "media/Lettering.h"

#include <cstddef>
#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include <stdexcept>
#include FT_FREETYPE_H

namespace tio::tool {

namespace {

using Picture = tio::PixelFormat::RgbImage;

struct FontFile {
    std::string path;
    int index = 0; // of the font in a file of several
};

void require(bool done) {
    if (!done)
        throw std::runtime_error("no font can be used; install one, such as fonts-dejavu-core");
}

FontFile findFont() {
    using Config = std::unique_ptr<FcConfig, decltype(&FcConfigDestroy)>;
    using Pattern = std::unique_ptr<FcPattern, decltype(&FcPatternDestroy)>;
    const Config config(FcInitLoadConfigAndFonts(), FcConfigDestroy);
    const Pattern wanted(FcNameParse(reinterpret_cast<const FcChar8*>("sans:scalable=true")),
                         FcPatternDestroy);
    require(config != nullptr && wanted != nullptr);
    FcConfigSubstitute(config.get(), wanted.get(), FcMatchPattern);
    FcDefaultSubstitute(wanted.get());
    FcResult result = FcResultMatch;
    const Pattern found(FcFontMatch(config.get(), wanted.get(), &result), FcPatternDestroy);
    FcChar8* path = nullptr; // owned by the pattern
    require(found != nullptr &&
            FcPatternGetString(found.get(), FC_FILE, 0, &path) == FcResultMatch);
    FontFile file{reinterpret_cast<const char*>(path)};
    FcPatternGetInteger(found.get(), FC_INDEX, 0, &file.index);
    return file;
}

void blend(Picture& picture, int row, int col, Colour colour, int coverage) {
    if (row < 0 || col < 0 || row >= picture.rows() || col >= picture.cols())
        return;
    Colour& pixel = picture(row, col);
    for (int i = 0; i < 3; ++i)
        pixel[i] = static_cast<uint8_t>((colour[i] * coverage + pixel[i] * (255 - coverage)) / 255);
}

void drawGlyph(Picture& picture, int top, int left, const FT_Bitmap& bitmap, Colour colour) {
    for (int row = 0; row < static_cast<int>(bitmap.rows); ++row) {
        const unsigned char* const line = bitmap.buffer + std::ptrdiff_t{row} * bitmap.pitch;
        for (int col = 0; col < static_cast<int>(bitmap.width); ++col)
            blend(picture, top + row, left + col, colour, line[col]);
    }
}

constexpr int wholePixels(FT_Pos position) {
    return static_cast<int>(position >> 6); // FreeType counts in 64ths
}

} // namespace

struct Lettering::Font {
    explicit Font(int lineHeight) {
        require(FT_Init_FreeType(&library) == 0);
        const FontFile file = findFont();
        if (FT_New_Face(library, file.path.c_str(), file.index, &face) != 0)
            face = nullptr;
        // Between the highest and the lowest reach of a font lies about an eighth more than its
        // size.
        const auto size = static_cast<FT_UInt>(lineHeight > 9 ? lineHeight * 8 / 10 : 8);
        const bool usable = face != nullptr && FT_Set_Pixel_Sizes(face, 0, size) == 0;
        if (!usable)
            FT_Done_FreeType(library); // with its face
        require(usable);
    }
    ~Font() { FT_Done_FreeType(library); }
    Font(const Font&) = delete;
    Font& operator=(const Font&) = delete;

    /// Draws a character where it is printable, and gives it.
    [[nodiscard]] FT_GlyphSlot load(char character, FT_Int32 flags) const {
        const auto code = static_cast<unsigned char>(character);
        return FT_Load_Char(face, code, flags) == 0 ? face->glyph : nullptr;
    }

    FT_Library library = nullptr;
    FT_Face face = nullptr;
};

Lettering::Lettering(int lineHeight) : font(std::make_unique<Font>(lineHeight)) {}

Lettering::~Lettering() = default;
Lettering::Lettering(Lettering&&) noexcept = default;
Lettering& Lettering::operator=(Lettering&&) noexcept = default;

int Lettering::widthOf(const std::string& text) const {
    int width = 0;
    for (const char character : text) {
        if (const FT_GlyphSlot glyph = font->load(character, FT_LOAD_NO_BITMAP))
            width += wholePixels(glyph->advance.x);
    }
    return width;
}

void Lettering::write(Picture& picture, int top, int left, const std::string& text,
                      Colour colour) const {
    const int baseline = top + wholePixels(font->face->size->metrics.ascender);
    for (const char character : text) {
        const FT_GlyphSlot glyph = font->load(character, FT_LOAD_RENDER | FT_LOAD_NO_BITMAP);
        if (glyph == nullptr)
            continue;
        drawGlyph(picture, baseline - glyph->bitmap_top, left + glyph->bitmap_left, glyph->bitmap,
                  colour);
        left += wholePixels(glyph->advance.x);
    }
}

} // namespace tio::tool
