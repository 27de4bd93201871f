#include "picture/PictureConverter.h"

#include "support/Expectations.h"
#include "support/GuardedMemory.h"
#include "support/MadePictures.h"

#include <TARN/core/Exception.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace tio::ffmpeg::detail {
namespace {

using test::converted;
using test::flatPicture;
using test::makePicture;
using test::noisyPicture;
using test::sampleAt;
using test::thrownText;
using ::testing::HasSubstr;

// --- Planes of Y, Cb and Cr ---

TEST(PictureConverterTest, PlanesThatAreStoredSoAreCopied) {
    const auto picture = noisyPicture(AV_PIX_FMT_YUV420P, 33, 21);
    const Image planes = converted(*picture, PictureFormat::Yuv420);
    const Image nv12 = converted(*picture, PictureFormat::Nv12);
    for (int y = 0; y < 21; ++y) {
        const uint8_t* stored = picture->data[0] + y * picture->linesize[0];
        ASSERT_EQ(std::memcmp(planes.data() + y * planes.stride(), stored, 33), 0);
        ASSERT_EQ(std::memcmp(nv12.data() + y * nv12.stride(), stored, 33), 0);
    }
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 17; ++x)
            for (int i = 1; i < 3; ++i) {
                const int stored = picture->data[i][y * picture->linesize[i] + x];
                ASSERT_EQ(sampleAt(planes, i, y, x), stored);
                ASSERT_EQ(sampleAt(nv12, 1, y, 2 * x + i - 1), stored);
            }
}

TEST(PictureConverterTest, DeepPlanesAreCopiedWhole) {
    const auto picture = noisyPicture(AV_PIX_FMT_YUV422P10, 19, 5);
    const Image image = converted(*picture, PictureFormat::Yuv422P10);
    for (int plane = 0; plane < 3; ++plane)
        for (int y = 0; y < 5; ++y)
            ASSERT_EQ(std::memcmp(image.data(plane) + y * image.stride(plane),
                                  picture->data[plane] + y * picture->linesize[plane],
                                  plane == 0 ? 38 : 20),
                      0);
}

TEST(PictureConverterTest, PlanesOfRgbAreThoseOfBt601) {
    const Image image =
        converted(*flatPicture(AV_PIX_FMT_RGB24, {200, 100, 50}), PictureFormat::Nv12);
    const double luma = (0.299 * 200 + 0.587 * 100 + 0.114 * 50) / 255;
    EXPECT_NEAR(sampleAt(image, 0, 0, 0), 16 + 219 * luma, 0.51);
    EXPECT_NEAR(sampleAt(image, 1, 0, 0), 128 + 224 * (50 / 255.0 - luma) / 1.772, 0.51);
    EXPECT_NEAR(sampleAt(image, 1, 0, 1), 128 + 224 * (200 / 255.0 - luma) / 1.402, 0.51);
}

// --- Turning ---

/// Where a stored pixel goes, from the words for each way.
std::array<int, 2> placeOf(int way, int row, int column, int rows, int columns) {
    switch (way) {
    case 2:
        return {row, columns - 1 - column};
    case 3:
        return {rows - 1 - row, columns - 1 - column};
    case 4:
        return {rows - 1 - row, column};
    case 5:
        return {column, row};
    case 6:
        return {column, rows - 1 - row};
    case 7:
        return {columns - 1 - column, rows - 1 - row};
    case 8:
        return {columns - 1 - column, row};
    default:
        return {row, column};
    }
}

class TurnedPicture : public ::testing::TestWithParam<int> {};

TEST_P(TurnedPicture, HasTheSamePixelsInOtherPlaces) {
    const int way = GetParam();
    for (const auto format : {PictureFormat::Rgb8, PictureFormat::Rgb16, PictureFormat::Grey8,
                              PictureFormat::Grey16, PictureFormat::Yuv444}) {
        const auto picture = noisyPicture(AV_PIX_FMT_YUV444P, 37, 19);
        const Image stored = converted(*picture, format);
        const Image turned = converted(*picture, format, way);
        ASSERT_EQ(turned.width(), way >= 5 ? 19 : 37);
        ASSERT_EQ(turned.height(), way >= 5 ? 37 : 19);
        const int channels = stored.channels();
        for (int plane = 0; plane < planeCount(format); ++plane)
            for (int row = 0; row < 19; ++row)
                for (int column = 0; column < 37; ++column) {
                    const auto [y, x] = placeOf(way, row, column, 19, 37);
                    for (int i = 0; i < channels; ++i)
                        ASSERT_EQ(sampleAt(turned, plane, y, x * channels + i),
                                  sampleAt(stored, plane, row, column * channels + i));
                }
    }
}

TEST_P(TurnedPicture, HasItsChromaTurned) {
    const int way = GetParam();
    const auto picture = noisyPicture(AV_PIX_FMT_YUV420P, 36, 18);
    const Image stored = converted(*picture, PictureFormat::Nv12);
    const Image turned = converted(*picture, PictureFormat::Nv12, way);
    for (int row = 0; row < 9; ++row)
        for (int column = 0; column < 18; ++column) {
            const auto [y, x] = placeOf(way, row, column, 9, 18);
            for (int i = 0; i < 2; ++i)
                ASSERT_EQ(sampleAt(turned, 1, y, 2 * x + i),
                          sampleAt(stored, 1, row, 2 * column + i));
        }
}

INSTANTIATE_TEST_SUITE_P(Ways, TurnedPicture, ::testing::Range(1, 9));

// --- Sizes ---

/// The average of a rectangle of a component, parts of samples counted by their parts.
double areaOf(const AVFrame& picture, double left, double right, double top, double bottom) {
    double sum = 0;
    for (int y = static_cast<int>(top); y < std::ceil(bottom - 1e-9); ++y)
        for (int x = static_cast<int>(left); x < std::ceil(right - 1e-9); ++x)
            sum += picture.data[0][y * picture.linesize[0] + x] *
                   (std::min<double>(right, x + 1) - std::max<double>(left, x)) *
                   (std::min<double>(bottom, y + 1) - std::max<double>(top, y));
    return sum / ((right - left) * (bottom - top));
}

TEST(PictureConverterTest, ASmallerPictureIsMadeOfAreas) {
    const auto picture = noisyPicture(AV_PIX_FMT_GRAY8, 61, 47);
    for (const auto& [height, width] : {std::pair(47, 61), std::pair(23, 30), std::pair(7, 60),
                                        std::pair(46, 1), std::pair(1, 1), std::pair(47, 13)}) {
        const Image image = converted(*picture, PictureFormat::Grey8, 1, height, width);
        ASSERT_EQ(image.height(), height);
        ASSERT_EQ(image.width(), width);
        const double across = 61.0 / width;
        const double down = 47.0 / height;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                ASSERT_NEAR(
                    sampleAt(image, 0, y, x),
                    areaOf(*picture, x * across, (x + 1) * across, y * down, (y + 1) * down), 0.51)
                    << height << " x " << width << " at " << y << ", " << x;
    }
}

// Half the size: each pixel of four lumas and the one chroma that they share.
TEST(PictureConverterTest, AHalfSizedPictureTakesEachChromaOnce) {
    const auto picture = noisyPicture(AV_PIX_FMT_YUV420P, 34, 22);
    picture->color_range = AVCOL_RANGE_JPEG;
    const Image image = converted(*picture, PictureFormat::Rgb8, 1, 11, 17);
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 17; ++x) {
            const double luma = areaOf(*picture, 2 * x, 2 * x + 2, 2 * y, 2 * y + 2);
            const double v = picture->data[2][y * picture->linesize[2] + x] - 128;
            ASSERT_NEAR(sampleAt(image, 0, y, 3 * x), std::clamp(luma + 1.402 * v, 0.0, 255.0),
                        0.51);
        }
}

TEST(PictureConverterTest, ALargerPictureHasLinesBetweenSamples) {
    auto picture = makePicture(AV_PIX_FMT_GRAY8, 2, 1);
    picture->data[0][0] = 0;
    picture->data[0][1] = 100;
    const Image image = converted(*picture, PictureFormat::Grey8, 1, 3, 4);
    for (int y = 0; y < 3; ++y) {
        EXPECT_EQ(sampleAt(image, 0, y, 0), 0);
        EXPECT_EQ(sampleAt(image, 0, y, 1), 25);
        EXPECT_EQ(sampleAt(image, 0, y, 2), 75);
        EXPECT_EQ(sampleAt(image, 0, y, 3), 100);
    }
}

TEST(PictureConverterTest, TheSizeIsThatOfTheUprightPicture) {
    const auto picture = noisyPicture(AV_PIX_FMT_YUV420P, 40, 20);
    const Image image = converted(*picture, PictureFormat::Rgb8, 6, 20, 10);
    EXPECT_EQ(image.height(), 20);
    EXPECT_EQ(image.width(), 10);
    const Image lying = converted(*picture, PictureFormat::Rgb8, 1, 10, 20);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(sampleAt(image, 0, 0, 9 * 3 + i), sampleAt(lying, 0, 0, i));
}

// --- Memory ---

constexpr std::array<PictureFormat, 11> allFormats = {
    PictureFormat::Rgb8,      PictureFormat::Rgb16,    PictureFormat::Grey8,
    PictureFormat::Grey16,    PictureFormat::Nv12,     PictureFormat::Yuv420,
    PictureFormat::Yuv422,    PictureFormat::Yuv444,   PictureFormat::Yuv420P10,
    PictureFormat::Yuv422P10, PictureFormat::Yuv444P10};

class TightMemory : public ::testing::TestWithParam<PictureFormat> {};

// Each plane ends where the process may touch nothing any more.
TEST_P(TightMemory, IsNeverLeft) {
    const PictureFormat format = GetParam();
    for (int size = 1; size <= 67; ++size)
        for (const int way : {1, 2, 6}) {
            const int height = size;
            const int width = 68 - size;
            const auto picture = noisyPicture(AV_PIX_FMT_YUV420P, width, height);
            PictureConverter converter({format, Colours::Tagged});
            const Image expected = converter.convert(*picture, way);
            ImageView view;
            view.format = format;
            view.height = expected.height();
            view.width = expected.width();
            std::vector<std::unique_ptr<test::GuardedMemory>> planes;
            for (int plane = 0; plane < planeCount(format); ++plane) {
                const PlaneSize part = planeSize(format, view.height, view.width, plane);
                const auto bytes = static_cast<size_t>(part.rowBytes * part.rows);
                planes.push_back(std::make_unique<test::GuardedMemory>(bytes));
                view.planes[static_cast<size_t>(plane)] = planes.back()->data();
                view.strides[static_cast<size_t>(plane)] = part.rowBytes;
            }
            converter.convert(*picture, way, view);
            for (int plane = 0; plane < planeCount(format); ++plane)
                ASSERT_EQ(std::memcmp(planes[static_cast<size_t>(plane)]->data(),
                                      expected.data(plane),
                                      planes[static_cast<size_t>(plane)]->size()),
                          0)
                    << width << " x " << height << " way " << way;
        }
}

INSTANTIATE_TEST_SUITE_P(Formats, TightMemory, ::testing::ValuesIn(allFormats));

// What lies between rows is the caller's.
TEST(PictureConverterTest, NothingBetweenRowsIsTouched) {
    const auto picture = noisyPicture(AV_PIX_FMT_YUV420P, 35, 9);
    const Image expected = converted(*picture, PictureFormat::Rgb8);
    std::vector<uint8_t> memory(9 * 120, 0xAB);
    ImageView view;
    view.height = 9;
    view.width = 35;
    view.planes[0] = memory.data() + 8 * 120; // from the bottom up
    view.strides[0] = -120;
    PictureConverter({PictureFormat::Rgb8, Colours::Tagged}).convert(*picture, 1, view);
    for (int y = 0; y < 9; ++y) {
        const uint8_t* row = memory.data() + (8 - y) * 120;
        EXPECT_EQ(std::memcmp(row, expected.data() + y * expected.stride(), 105), 0);
        EXPECT_TRUE(std::all_of(row + 105, row + 120, [](uint8_t b) { return b == 0xAB; }));
    }
}

// The picture's planes, too, may end where nothing may be read.
TEST(PictureConverterTest, NothingIsReadBeyondThePicture) {
    for (int width = 1; width <= 67; ++width) {
        const auto picture = noisyPicture(AV_PIX_FMT_YUV420P, width, 3);
        const Image expected = converted(*picture, PictureFormat::Rgb8);
        std::vector<std::unique_ptr<test::GuardedMemory>> planes;
        test::FramePointer tight(test::checkFound(av_frame_alloc(), "frame"));
        tight->format = AV_PIX_FMT_YUV420P;
        tight->width = width;
        tight->height = 3;
        for (int i = 0; i < 3; ++i) {
            const int columns = i == 0 ? width : (width + 1) / 2;
            const int rows = i == 0 ? 3 : 2;
            planes.push_back(
                std::make_unique<test::GuardedMemory>(static_cast<size_t>(columns * rows)));
            tight->data[i] = planes.back()->data();
            tight->linesize[i] = columns;
            for (int y = 0; y < rows; ++y)
                std::memcpy(tight->data[i] + y * columns,
                            picture->data[i] + y * picture->linesize[i],
                            static_cast<size_t>(columns));
        }
        const Image image = converted(*tight, PictureFormat::Rgb8);
        ASSERT_EQ(std::memcmp(image.data(), expected.data(), static_cast<size_t>(9 * width)), 0);
    }
}

TEST(PictureConverterTest, EverySizeGivesEverySize) {
    std::mt19937 random(3);
    const auto side = [&] { return static_cast<int>(random() % 67) + 1; };
    for (int i = 0; i < 300; ++i) {
        const auto format = allFormats[random() % allFormats.size()];
        const auto from = i % 2 == 0 ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV422P10;
        auto picture = flatPicture(from, {100, 60, 140}, side(), side());
        const Image image =
            converted(*picture, format, static_cast<int>(random() % 8) + 1, side(), side());
        const Image whole = converted(*picture, format);
        for (int plane = 0; plane < planeCount(format); ++plane) {
            const PlaneSize part = planeSize(format, image.height(), image.width(), plane);
            const int last = static_cast<int>(part.rowBytes) / (image.depth() > 8 ? 2 : 1) - 1;
            ASSERT_NEAR(sampleAt(image, plane, part.rows - 1, last),
                        sampleAt(whole, plane, 0, format == PictureFormat::Nv12 ? plane : 0) +
                            (image.channels() == 3
                                 ? sampleAt(whole, 0, 0, 2) - sampleAt(whole, 0, 0, 0)
                                 : 0),
                        1);
        }
    }
}

// --- What is refused ---

TEST(PictureConverterTest, RefusesAWrongSizeOrFormat) {
    EXPECT_THAT(thrownText<tio::Exception>([] {
                    PictureConverter({PictureFormat::Rgb8, Colours::Tagged, 10, 0});
                }),
                HasSubstr("cannot be 0 x 10"));
    EXPECT_THROW(PictureConverter({static_cast<PictureFormat>(99), Colours::Tagged}),
                 tio::Exception);
}

TEST(PictureConverterTest, RefusesMemoryThatDoesNotFit) {
    const auto picture = noisyPicture(AV_PIX_FMT_YUV420P, 20, 10);
    PictureConverter converter({PictureFormat::Rgb8, Colours::Tagged});
    Image image(PictureFormat::Rgb8, 10, 20);
    std::memset(image.data(), 0x55, static_cast<size_t>(image.byteCount()));
    ImageView narrow = image.view();
    narrow.strides[0] = 59;
    ImageView low = image.view();
    low.height = 9;
    ImageView grey = image.view();
    grey.format = PictureFormat::Grey8;
    ImageView none = image.view();
    none.planes[0] = nullptr;
    for (const ImageView& view : {narrow, low, grey, none})
        EXPECT_THROW(converter.convert(*picture, 1, view), tio::Exception);
    EXPECT_EQ(image.data()[0], 0x55);
    EXPECT_EQ(image.data()[image.byteCount() - 1], 0x55);
}

TEST(PictureConverterTest, RefusesWhatIsNoPictureInMemory) {
    PictureConverter converter({PictureFormat::Rgb8, Colours::Tagged});
    test::FramePointer empty(test::checkFound(av_frame_alloc(), "frame"));
    EXPECT_THROW(static_cast<void>(converter.convert(*empty, 1)), tio::Exception);
    auto picture = noisyPicture(AV_PIX_FMT_YUV420P, 20, 10);
    picture->format = AV_PIX_FMT_VAAPI;
    EXPECT_THAT(
        thrownText<tio::Exception>([&] { static_cast<void>(converter.convert(*picture, 1)); }),
        HasSubstr("vaapi"));
}

} // namespace
} // namespace tio::ffmpeg::detail
