#include "support/ByteEdits.h"
#include "support/Expectations.h"
#include "support/ImagePixels.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/ReadImage.h>
#include <TARN/videoio/WriteImage.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::bytesOf;
using test::thrownText;
using testing::HasSubstr;
using Rgb = test::RgbImage;

class WriteImageOptionsTest : public testing::Test {
protected:
    /// Slopes with some noise, so that every step of quality shows.
    static Rgb makePicture(int rows, int cols) {
        Rgb image(Vec<int, 2>(rows, cols));
        uint32_t state = 1;
        for (int row = 0; row < rows; ++row)
            for (int col = 0; col < cols; ++col) {
                state = state * 1664525 + 1013904223; // a plain linear congruential generator
                const auto noise = static_cast<int>(state >> 28);
                image(row, col) = {static_cast<uint8_t>(40 + 2 * row + noise),
                                   static_cast<uint8_t>(60 + col + noise),
                                   static_cast<uint8_t>(200 - row - col)};
            }
        return image;
    }

    /// Bytes of the file that is written.
    std::vector<uint8_t> write(const std::string& name, const WriteImageOptions& options) {
        writeImage(folder.file(name), makePicture(48, 64), options);
        return test::readBytes(folder.file(name));
    }

    [[nodiscard]] bool hasOnly(const std::vector<std::string>& names) const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            found.push_back(entry.path().filename().string());
        return found == names;
    }

    static WriteImageOptions ofQuality(int quality) {
        WriteImageOptions options;
        options.quality = quality;
        return options;
    }

    test::TemporaryFolder folder;
    test::LogCapture log;
};

// --- Types ---

TEST_F(WriteImageOptionsTest, TheExtensionTellsTheTypeInAnyCase) {
    for (const char* name : {"a.png", "b.PNG", "c.Png"})
        EXPECT_EQ(write(name, {})[1], 'P') << name;
    for (const char* name : {"a.jpg", "b.JPG", "c.jpeg", "d.JPEG"})
        EXPECT_EQ(write(name, {})[1], 0xD8) << name;
    for (const char* name : {"a.ppm", "b.PPM"})
        EXPECT_EQ(write(name, {})[1], '6') << name;
}

TEST_F(WriteImageOptionsTest, NamesThatTellNoTypeAreRefused) {
    for (const char* name : {"a.gif", "a", "a.", "", ".", "png"})
        EXPECT_THROW(writeImage(folder.file(name), makePicture(4, 4), WriteImageOptions()),
                     tio::Exception)
            << name;
    WriteImageOptions none;
    none.type = static_cast<ImageFileType>(77);
    EXPECT_THROW(writeImage(folder.file("a.png"), makePicture(4, 4), none), tio::Exception);
    EXPECT_TRUE(hasOnly({}));
}

// --- JPEG ---

/// The tables of a JPEG file, in the zigzag order in which it has them.
std::vector<std::array<int, 64>> tablesOf(const std::vector<uint8_t>& jpeg) {
    std::vector<std::array<int, 64>> tables;
    size_t at = 2;
    while (at + 4 <= jpeg.size() && jpeg[at] == 0xFF && jpeg[at + 1] != 0xDA) {
        const size_t length = static_cast<size_t>(jpeg[at + 2]) << 8 | jpeg[at + 3];
        if (jpeg[at + 1] == 0xDB)
            for (size_t table = at + 4; table + 65 <= at + 2 + length; table += 65) {
                tables.emplace_back();
                for (size_t i = 0; i < 64; ++i)
                    tables.back()[i] = jpeg[table + 1 + i];
            }
        at += 2 + length;
    }
    return tables;
}

// Quality 50 is Annex K as it stands: the first steps of K.1 and K.2 in zigzag order, by hand. The
// mean of a block always has the step 8 in this encoder.
TEST_F(WriteImageOptionsTest, TheQualityScalesTheTablesOfTheStandard) {
    const auto tables = tablesOf(write("half.jpg", ofQuality(50)));
    ASSERT_EQ(tables.size(), 2u);
    const std::vector<int> luma = {11, 12, 14, 12, 10, 16, 14, 13, 14};
    const std::vector<int> chroma = {18, 18, 24, 21, 24, 47, 26, 26, 47};
    EXPECT_EQ(std::vector<int>(tables[0].begin() + 1, tables[0].begin() + 10), luma);
    EXPECT_EQ(std::vector<int>(tables[1].begin() + 1, tables[1].begin() + 10), chroma);
    EXPECT_EQ(tables[0][63], 99);

    const auto finer = tablesOf(write("finer.jpg", ofQuality(75))); // half the steps
    EXPECT_EQ(finer[0][1], 6);                                      // 5.5 rounded
    EXPECT_EQ(finer[0][63], 50);
    const auto coarser = tablesOf(write("coarser.jpg", ofQuality(25))); // twice the steps
    EXPECT_EQ(coarser[0][1], 22);
    EXPECT_EQ(coarser[0][63], 198);
    const auto finest = tablesOf(write("finest.jpg", ofQuality(100)));
    for (size_t i = 1; i < 64; ++i)
        EXPECT_EQ(finest[0][i], 1);
}

TEST_F(WriteImageOptionsTest, MoreQualityMeansMoreBytesAndLessError) {
    size_t bytesBefore = 0;
    long errorBefore = LONG_MAX;
    const auto given = bytesOf(makePicture(48, 64));
    for (const int quality : {1, 20, 50, 75, 90, 95, 100}) {
        const auto bytes = write("image.jpg", ofQuality(quality)).size();
        const auto read = test::oracleImage(folder.file("image.jpg")).pixels;
        ASSERT_EQ(read.size(), given.size());
        long error = 0;
        for (size_t i = 0; i < given.size(); ++i)
            error += std::abs(int{given[i]} - read[i]);
        EXPECT_GT(bytes, bytesBefore) << quality;
        EXPECT_LT(error, errorBefore) << quality;
        bytesBefore = bytes;
        errorBefore = error;
    }
}

// --- PNG ---

TEST_F(WriteImageOptionsTest, CompressionMakesAPngSmallerAndLosesNothing) {
    WriteImageOptions none;
    none.compression = 0;
    WriteImageOptions most;
    most.compression = 9;
    const auto large = write("none.png", none).size();
    const auto small = write("most.png", most).size();
    EXPECT_GE(large, 48u * (1 + 3 * 64)) << "stored, with a byte more in each row";
    EXPECT_LT(small, large);
    for (const char* name : {"none.png", "most.png"})
        EXPECT_EQ(test::oracleImage(folder.file(name)).pixels, bytesOf(makePicture(48, 64)));
}

// --- Refusals and failures ---

TEST_F(WriteImageOptionsTest, WhatIsOutOfRangeTouchesNoFile) {
    std::ofstream(folder.file("a.jpg")) << "kept";
    for (const int quality : {0, 101, -1, INT_MIN, INT_MAX}) {
        EXPECT_THAT(thrownText<tio::Exception>([&] {
                        writeImage(folder.file("a.jpg"), makePicture(4, 4), ofQuality(quality));
                    }),
                    HasSubstr("1 to 100"));
        EXPECT_THROW(write("b.png", ofQuality(quality)), tio::Exception);
    }
    for (const int compression : {-1, 10, INT_MAX}) {
        WriteImageOptions options;
        options.compression = compression;
        EXPECT_THROW(write("b.png", options), tio::Exception) << compression;
    }
    EXPECT_EQ(test::readBytes(folder.file("a.jpg")).size(), 4u);
    EXPECT_TRUE(hasOnly({"a.jpg"}));
}

TEST_F(WriteImageOptionsTest, RowsMayLieInAnyOrder) {
    const Rgb image = makePicture(5, 7);
    ConstImageView upsideDown;
    upsideDown.height = 5;
    upsideDown.width = 7;
    upsideDown.planes[0] = reinterpret_cast<const uint8_t*>(image.data()) + 4 * 21;
    upsideDown.strides[0] = -21;
    writeImage(folder.file("a.png"), upsideDown, {});
    const auto written = test::oracleImage(folder.file("a.png")).pixels;
    const auto given = bytesOf(image);
    for (size_t row = 0; row < 5; ++row)
        for (size_t i = 0; i < 21; ++i)
            EXPECT_EQ(written[row * 21 + i], given[(4 - row) * 21 + i]);
}

TEST_F(WriteImageOptionsTest, MemoryThatHoldsNoPictureIsRefused) {
    const Rgb image = makePicture(5, 7);
    ConstImageView good;
    good.height = 5;
    good.width = 7;
    good.planes[0] = reinterpret_cast<const uint8_t*>(image.data());
    good.strides[0] = 21;
    std::vector<ConstImageView> bad(5, good);
    bad[0].planes[0] = nullptr;
    bad[1].strides[0] = 20;
    bad[2].height = 0;
    bad[3].width = -7;
    bad[4].format = PictureFormat::Nv12;
    for (const ConstImageView& view : bad)
        EXPECT_THROW(writeImage(folder.file("a.png"), view, {}), tio::Exception);
    EXPECT_THROW(writeImage(folder.file("a.png"), Rgb(), WriteImageOptions()), tio::Exception);
    EXPECT_TRUE(hasOnly({}));
    EXPECT_NO_THROW(writeImage(folder.file("a.png"), good, {}));
}

TEST_F(WriteImageOptionsTest, AFolderThatIsMissingIsToldWithTheSystemsCode) {
    try {
        writeImage(folder.file("none/a.png"), makePicture(4, 4), WriteImageOptions());
        ADD_FAILURE();
    } catch (const Exception& failure) {
        EXPECT_EQ(failure.code(), -ENOENT);
        EXPECT_THAT(failure.what(), HasSubstr("none/a.png"));
    }
}

} // namespace
} // namespace tio::ffmpeg
