#include "picture/PictureConverter.h"
#include "support/MadePictures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {
namespace {

using test::converted;
using test::flatPicture;
using test::makePicture;
using test::sampleAt;
using test::writeComponent;
using Levels = std::array<double, 3>;

// By the formulas of ITU-T H.273.

struct Matrix {
    const char* name;
    AVColorSpace tag;
    double red;
    double blue;
};

constexpr std::array<Matrix, 7> matrices = {{
    {"BT601", AVCOL_SPC_SMPTE170M, 0.299, 0.114},
    {"BT470BG", AVCOL_SPC_BT470BG, 0.299, 0.114},
    {"BT709", AVCOL_SPC_BT709, 0.2126, 0.0722},
    {"BT2020", AVCOL_SPC_BT2020_NCL, 0.2627, 0.0593},
    {"FCC", AVCOL_SPC_FCC, 0.30, 0.11},
    {"SMPTE240M", AVCOL_SPC_SMPTE240M, 0.212, 0.087},
    {"YCgCo", AVCOL_SPC_YCGCO, 0, 0},
}};

Levels expectedRgb(const Matrix& matrix, bool full, int depth,
                   const std::array<uint16_t, 3>& samples) {
    const double unit = std::pow(2, depth - 8);
    const double largest = std::pow(2, depth) - 1;
    const double y = full ? samples[0] / largest : (samples[0] - 16 * unit) / (219 * unit);
    const double middle = 128 * unit;
    const double u = (samples[1] - middle) / (full ? largest : 224 * unit);
    const double v = (samples[2] - middle) / (full ? largest : 224 * unit);
    if (matrix.tag == AVCOL_SPC_YCGCO)
        return {y - u + v, y + u, y - u - v};
    const double red = y + 2 * (1 - matrix.red) * v;
    const double blue = y + 2 * (1 - matrix.blue) * u;
    const double green =
        (y - matrix.red * red - matrix.blue * blue) / (1 - matrix.red - matrix.blue);
    return {red, green, blue};
}

double bounded(double unit, double largest) {
    return std::clamp(unit, 0.0, 1.0) * largest;
}

struct Layout {
    const char* name;
    AVPixelFormat format;
};

constexpr std::array<Layout, 14> layouts = {{
    {"420", AV_PIX_FMT_YUV420P},
    {"422", AV_PIX_FMT_YUV422P},
    {"444", AV_PIX_FMT_YUV444P},
    {"nv12", AV_PIX_FMT_NV12},
    {"packed", AV_PIX_FMT_YUYV422},
    {"410", AV_PIX_FMT_YUV410P},
    {"420by10", AV_PIX_FMT_YUV420P10},
    {"422by10", AV_PIX_FMT_YUV422P10},
    {"444by10", AV_PIX_FMT_YUV444P10},
    {"p010", AV_PIX_FMT_P010LE},
    {"420by12", AV_PIX_FMT_YUV420P12},
    {"444by12be", AV_PIX_FMT_YUV444P12BE},
    {"420by16", AV_PIX_FMT_YUV420P16},
    {"444by16", AV_PIX_FMT_YUV444P16},
}};

class FlatColours : public ::testing::TestWithParam<std::tuple<Matrix, bool, Layout>> {};

TEST_P(FlatColours, AreThoseOfTheArithmetic) {
    const auto& [matrix, full, layout] = GetParam();
    const int depth = av_pix_fmt_desc_get(layout.format)->comp[0].depth;
    std::mt19937 random(7);
    for (int colour = 0; colour < 40; ++colour) {
        std::array<uint16_t, 3> samples{};
        for (auto& sample : samples)
            sample = static_cast<uint16_t>(random() & ((1U << depth) - 1));
        auto picture = flatPicture(layout.format, samples);
        picture->colorspace = matrix.tag;
        picture->color_range = full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
        const Levels expected = expectedRgb(matrix, full, depth, samples);
        const Image small = converted(*picture, PictureFormat::Rgb8);
        const Image large = converted(*picture, PictureFormat::Rgb16);
        for (int i = 0; i < 3; ++i) {
            const double level = expected[static_cast<size_t>(i)];
            for (const int column : {0, 31, 32, 39}) {
                ASSERT_NEAR(sampleAt(small, 0, 5, 3 * column + i), bounded(level, 255), 0.7);
                ASSERT_NEAR(sampleAt(large, 0, 5, 3 * column + i), bounded(level, 65535), 1);
            }
        }
        const double luma = full ? samples[0] / (std::pow(2, depth) - 1)
                                 : (samples[0] / std::pow(2, depth - 8) - 16) / 219;
        ASSERT_NEAR(sampleAt(converted(*picture, PictureFormat::Grey8), 0, 5, 39),
                    bounded(luma, 255), 0.51);
        ASSERT_NEAR(sampleAt(converted(*picture, PictureFormat::Grey16), 0, 5, 39),
                    bounded(luma, 65535), 1);
    }
}

std::string flatName(const ::testing::TestParamInfo<FlatColours::ParamType>& info) {
    return std::string(std::get<0>(info.param).name) +
           (std::get<1>(info.param) ? "Full" : "Limited") + std::get<2>(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(All, FlatColours,
                         ::testing::Combine(::testing::ValuesIn(matrices), ::testing::Bool(),
                                            ::testing::ValuesIn(layouts)),
                         flatName);

// Every luma, and chroma in steps: what is done in whole numbers stays within a level.
TEST(PictureColours, EightBitColoursAreWithinOneLevelAllOver) {
    for (const Matrix& matrix : matrices)
        for (int u = 0; u < 256; u += 15) {
            auto picture = makePicture(AV_PIX_FMT_YUV444P, 256, 18);
            writeComponent(*picture, 0, [](int x, int) { return static_cast<uint16_t>(x); });
            writeComponent(*picture, 1, [&](int, int) { return static_cast<uint16_t>(u); });
            writeComponent(*picture, 2, [](int, int y) { return static_cast<uint16_t>(15 * y); });
            picture->colorspace = matrix.tag;
            const Image image = converted(*picture, PictureFormat::Rgb8);
            for (int y = 0; y < 18; ++y)
                for (int x = 0; x < 256; ++x) {
                    const Levels expected =
                        expectedRgb(matrix, false, 8,
                                    {static_cast<uint16_t>(x), static_cast<uint16_t>(u),
                                     static_cast<uint16_t>(15 * y)});
                    for (int i = 0; i < 3; ++i)
                        ASSERT_NEAR(sampleAt(image, 0, y, 3 * x + i),
                                    bounded(expected[static_cast<size_t>(i)], 255), 0.7)
                            << matrix.name << " " << x << " " << u << " " << 15 * y;
                }
        }
}

struct TagCase {
    const char* name;
    AVPixelFormat format;
    AVColorSpace matrix;
    AVColorRange range;
    Colours colours;
    Levels expected; // of Y 100, Cb 90, Cr 180
};

class ColourTagsTest : public ::testing::TestWithParam<TagCase> {};

TEST_P(ColourTagsTest, SayWhatIsMeant) {
    const TagCase& tags = GetParam();
    auto picture = flatPicture(tags.format, {100, 90, 180});
    picture->colorspace = tags.matrix;
    picture->color_range = tags.range;
    PictureConverter converter({PictureFormat::Rgb8, tags.colours});
    const Image image = converter.convert(*picture, 1);
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(sampleAt(image, 0, 0, i), tags.expected[static_cast<size_t>(i)], 0.7) << i;
}

// Worked out by hand from the formulas of H.273: limited Y 100 is 97.81 of 255, full is 100.
const Levels limited601 = {97.81 + 1.5960 * 52, 97.81 - 0.3918 * -38 - 0.8130 * 52,
                           97.81 + 2.0172 * -38};
const Levels full601 = {100 + 1.402 * 52, 100 - 0.34414 * -38 - 0.71414 * 52, 100 + 1.772 * -38};
const Levels limited709 = {97.81 + 1.7927 * 52, 97.81 - 0.2132 * -38 - 0.5329 * 52,
                           97.81 + 2.1124 * -38};

INSTANTIATE_TEST_SUITE_P(
    Cases, ColourTagsTest,
    ::testing::Values(TagCase{"Nothing", AV_PIX_FMT_YUV420P, AVCOL_SPC_UNSPECIFIED,
                              AVCOL_RANGE_UNSPECIFIED, Colours::Tagged, limited601},
                      TagCase{"RangeAlone", AV_PIX_FMT_YUV420P, AVCOL_SPC_UNSPECIFIED,
                              AVCOL_RANGE_JPEG, Colours::Tagged, full601},
                      TagCase{"MatrixAlone", AV_PIX_FMT_YUV420P, AVCOL_SPC_BT709,
                              AVCOL_RANGE_UNSPECIFIED, Colours::Tagged, limited709},
                      TagCase{"Yuvj", AV_PIX_FMT_YUVJ420P, AVCOL_SPC_UNSPECIFIED,
                              AVCOL_RANGE_UNSPECIFIED, Colours::Tagged, full601},
                      TagCase{"IgnoredTags", AV_PIX_FMT_YUV420P, AVCOL_SPC_BT709, AVCOL_RANGE_JPEG,
                              Colours::Bt601, limited601},
                      TagCase{"YuvjWhateverTheTags", AV_PIX_FMT_YUVJ420P, AVCOL_SPC_BT709,
                              AVCOL_RANGE_MPEG, Colours::Bt601, full601},
                      TagCase{"PlanesOfGbr",
                              AV_PIX_FMT_YUV444P,
                              AVCOL_SPC_RGB,
                              AVCOL_RANGE_JPEG,
                              Colours::Tagged,
                              {180, 100, 90}}),
    [](const auto& of) { return std::string(of.param.name); });

TEST(PictureColours, TagsMayChangeFromPictureToPicture) {
    auto picture = flatPicture(AV_PIX_FMT_YUV420P, {100, 90, 180});
    PictureConverter converter({PictureFormat::Rgb8, Colours::Tagged});
    EXPECT_NEAR(sampleAt(converter.convert(*picture, 1), 0, 0, 0), limited601[0], 0.7);
    picture->colorspace = AVCOL_SPC_BT709;
    EXPECT_NEAR(sampleAt(converter.convert(*picture, 1), 0, 0, 0), limited709[0], 0.7);
    picture->color_range = AVCOL_RANGE_JPEG;
    EXPECT_NEAR(sampleAt(converter.convert(*picture, 1), 0, 0, 0), 100 + 1.5748 * 52, 0.7);
}

TEST(PictureColours, RgbAndGreyComeAsTheyAre) {
    for (const auto format :
         {AV_PIX_FMT_RGB24, AV_PIX_FMT_BGRA, AV_PIX_FMT_GBRP, AV_PIX_FMT_0RGB}) {
        const Image image = converted(*flatPicture(format, {200, 100, 7}), PictureFormat::Rgb8);
        EXPECT_EQ(sampleAt(image, 0, 5, 117), 200) << av_get_pix_fmt_name(format);
        EXPECT_EQ(sampleAt(image, 0, 5, 118), 100) << av_get_pix_fmt_name(format);
        EXPECT_EQ(sampleAt(image, 0, 5, 119), 7) << av_get_pix_fmt_name(format);
    }
    const auto deep = flatPicture(AV_PIX_FMT_GBRP12, {4095, 1000, 1});
    EXPECT_EQ(sampleAt(converted(*deep, PictureFormat::Rgb16), 0, 0, 0), 65535);
    EXPECT_NEAR(sampleAt(converted(*deep, PictureFormat::Rgb16), 0, 0, 1), 1000 * 65535 / 4095.0,
                0.51);
    EXPECT_EQ(sampleAt(converted(*deep, PictureFormat::Rgb16), 0, 0, 2), 16);
    const auto grey = flatPicture(AV_PIX_FMT_GRAY8, {77});
    EXPECT_EQ(sampleAt(converted(*grey, PictureFormat::Rgb8), 0, 5, 119), 77);
    EXPECT_EQ(sampleAt(converted(*grey, PictureFormat::Grey8), 0, 5, 39), 77);
    EXPECT_EQ(sampleAt(converted(*grey, PictureFormat::Grey16), 0, 5, 39), 77 * 257);
}

// swscale makes one colour in every format it knows; what comes back differs by what that format
// can hold.
TEST(PictureColours, EveryFormatOfFfmpegCanBeRead) {
    const auto red = flatPicture(AV_PIX_FMT_RGB24, {200, 100, 50}, 64, 16);
    int tried = 0;
    for (const AVPixFmtDescriptor* d = av_pix_fmt_desc_next(nullptr); d != nullptr;
         d = av_pix_fmt_desc_next(d)) {
        const AVPixelFormat format = av_pix_fmt_desc_get_id(d);
        if (sws_isSupportedOutput(format) == 0 || sws_isSupportedInput(format) == 0 ||
            (d->flags & AV_PIX_FMT_FLAG_HWACCEL) != 0 || d->comp[0].depth < 8)
            continue;
        const auto picture = makePicture(format, 64, 16);
        SwsContext* scaler = sws_getContext(64, 16, AV_PIX_FMT_RGB24, 64, 16, format,
                                            SWS_ACCURATE_RND, nullptr, nullptr, nullptr);
        ASSERT_NE(scaler, nullptr) << d->name;
        sws_scale(scaler, red->data, red->linesize, 0, 16, picture->data, picture->linesize);
        sws_freeContext(scaler);
        const Image image = converted(*picture, PictureFormat::Rgb8);
        const bool grey = d->nb_components < 3;
        const int luma = 124; // 0.299, 0.587 and 0.114 of the three
        EXPECT_NEAR(sampleAt(image, 0, 9, 90), grey ? luma : 200, 4) << d->name;
        EXPECT_NEAR(sampleAt(image, 0, 9, 91), grey ? luma : 100, 4) << d->name;
        EXPECT_NEAR(sampleAt(image, 0, 9, 92), grey ? luma : 50, 4) << d->name;
        ++tried;
    }
    EXPECT_GT(tried, 100);
}

TEST(PictureColours, APaletteIsLookedUp) {
    auto picture = makePicture(AV_PIX_FMT_PAL8, 20, 3);
    const uint32_t colour = 0xFF0A141EU; // red 10, green 20, blue 30
    std::memcpy(picture->data[1] + 4 * 5, &colour, 4);
    for (int y = 0; y < 3; ++y)
        std::memset(picture->data[0] + y * picture->linesize[0], 5, 20);
    const Image image = converted(*picture, PictureFormat::Rgb8);
    EXPECT_EQ(sampleAt(image, 0, 2, 57), 10);
    EXPECT_EQ(sampleAt(image, 0, 2, 58), 20);
    EXPECT_EQ(sampleAt(image, 0, 2, 59), 30);
}

} // namespace
} // namespace tio::ffmpeg::detail
