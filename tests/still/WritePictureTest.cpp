#include "ffmpeg_compat.h"
#include "support/ByteEdits.h"
#include "support/Expectations.h"
#include "support/StillImages.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/WriteImage.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

constexpr int height = 3;
constexpr int width = 5;

uint16_t sampleOf(int row, int value) {
    return static_cast<uint16_t>(row * 20011 + value * 1021 + 7);
}

/// A picture whose rows lie apart, with another value in each sample.
struct Made {
    explicit Made(PictureFormat format) {
        const int values = width * channelCount(format);
        const int bytes = bitDepth(format) / 8;
        const std::ptrdiff_t stride = values * bytes + 11;
        memory.assign(static_cast<size_t>(stride * height), 0xEE);
        for (int row = 0; row < height; ++row) {
            for (int value = 0; value < values; ++value) {
                const uint16_t sample = sampleOf(row, value);
                std::memcpy(memory.data() + row * stride + value * bytes, &sample,
                            static_cast<size_t>(bytes));
                if (bytes > 1)
                    expected.push_back(static_cast<uint8_t>(sample >> 8)); // as PPM has them
                expected.push_back(static_cast<uint8_t>(sample));
            }
        }
        view.format = format;
        view.height = height;
        view.width = width;
        view.planes[0] = memory.data();
        view.strides[0] = stride;
    }

    std::vector<uint8_t> memory;
    std::vector<uint8_t> expected; ///< the samples without gaps, upper bytes first
    ConstImageView view;
};

struct Kept {
    PictureFormat format;
    const char* header; ///< of a PNM file
    int pngColour;      ///< as byte 25 of a PNG file tells it
};

class WritePictureTest : public ::testing::TestWithParam<Kept> {
protected:
    test::TemporaryFolder folder;
};

TEST_P(WritePictureTest, KeepsEveryBitInAPnmFile) {
    const Made made(GetParam().format);
    writeImage(folder.file("a.ppm"), made.view, WriteImageOptions());
    const std::string header = GetParam().header;
    std::vector<uint8_t> file(header.begin(), header.end());
    file.insert(file.end(), made.expected.begin(), made.expected.end());
    EXPECT_EQ(test::readBytes(folder.file("a.ppm")), file);
}

TEST_P(WritePictureTest, StatesItsDepthAndColoursInAPngFile) {
    const Made made(GetParam().format);
    writeImage(folder.file("a.png"), made.view, WriteImageOptions());
    const auto file = test::readBytes(folder.file("a.png"));
    EXPECT_EQ(file.at(24), bitDepth(GetParam().format));
    EXPECT_EQ(file.at(25), GetParam().pngColour);
    const auto image = test::oracleImage(folder.file("a.png"));
    ASSERT_EQ(image.width, width);
    ASSERT_EQ(image.height, height);
    const int channels = channelCount(GetParam().format);
    if (bitDepth(GetParam().format) > 8 || channels == 1)
        return; // FFmpeg's own conversion of those rounds
    EXPECT_EQ(image.pixels, made.expected);
}

INSTANTIATE_TEST_SUITE_P(Formats, WritePictureTest,
                         ::testing::Values(Kept{PictureFormat::Rgb8, "P6\n5 3\n255\n", 2},
                                           Kept{PictureFormat::Rgb16, "P6\n5 3\n65535\n", 2},
                                           Kept{PictureFormat::Grey8, "P5\n5 3\n255\n", 0},
                                           Kept{PictureFormat::Grey16, "P5\n5 3\n65535\n", 0}));

TEST(WritePictureRefusalTest, LeavesNoFile) {
    const test::TemporaryFolder folder;
    const std::string path = folder.file("a.jpg");
    const Image nv12(PictureFormat::Nv12, 4, 4);
    EXPECT_EQ(test::thrownText<tio::Exception>(
                  [&] { writeImage(path, Made(PictureFormat::Rgb16).view, WriteImageOptions()); }),
              "A JPEG file holds samples of 8 bits");
    EXPECT_EQ(test::thrownText<tio::Exception>(
                  [&] { writeImage(path, nv12.view(), WriteImageOptions()); }),
              "Only pictures of RGB and grey are written as images");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(WritePictureRefusalTest, GreyIsWrittenAsJpegToo) {
    const test::TemporaryFolder folder;
    Image grey(PictureFormat::Grey8, 16, 16);
    std::memset(grey.data(), 200, 256);
    writeImage(folder.file("a.jpg"), std::as_const(grey).view(), WriteImageOptions());
    for (const uint8_t value : test::oracleImage(folder.file("a.jpg")).pixels)
        // FFmpeg 9.0 quantises more coarsely; a mistaken range is off by more than 8.
        EXPECT_NEAR(value, 200, avcodec_version() >= AV_VERSION_INT(63, 0, 0) ? 6 : 2);
}

} // namespace
} // namespace tio::ffmpeg
