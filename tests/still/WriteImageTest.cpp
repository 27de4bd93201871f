#include "support/ByteEdits.h"
#include "support/Expectations.h"
#include "support/ImagePixels.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/core/MatAlloc.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/ReadImage.h>
#include <TARN/videoio/WriteImage.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::bytesOf;
using test::thrownText;
using ::testing::ElementsAre;

using Image = test::RgbImage;

// Soft slopes, as JPEG expects them, and another colour in every pixel.
Image makeSlopes(int rows, int cols) {
    Image image(Vec<int, 2>(rows, cols));
    for (int row = 0; row < rows; ++row) {
        for (int col = 0; col < cols; ++col)
            image(row, col) = {static_cast<uint8_t>(40 + 150 * row / rows),
                               static_cast<uint8_t>(60 + 150 * col / cols),
                               static_cast<uint8_t>(200 - 90 * (row + col) / (rows + cols))};
    }
    return image;
}

class WriteImageTest : public ::testing::Test {
protected:
    // The two lines in the log of a check that failed.
    void expectLogged(const std::string& message, int number, const std::string& expression) {
        EXPECT_THAT(log.linesAt(4), ElementsAre(message + R"( @ ..\src\TARN\videoio\WriteImage:)" +
                                                    std::to_string(number),
                                                "Assertion failed: " + expression));
    }

    std::vector<uint8_t> firstBytes(const std::string& path, std::size_t count) {
        std::vector<uint8_t> bytes = test::readBytes(path);
        bytes.resize(count);
        return bytes;
    }

    test::TemporaryFolder folder;
    test::Interception intercepted;
    test::LogCapture log;
};

// Types

const std::vector<uint8_t> jpegBegins = {0xFF, 0xD8, 0xFF};
const std::vector<uint8_t> pngBegins = {0x89, 'P', 'N'};
const std::vector<uint8_t> ppmBegins = {'P', '6', '\n'};

TEST_F(WriteImageTest, AutoTakesTheTypeFromTheExtension) {
    const std::vector<std::pair<std::string, std::vector<uint8_t>>> files = {
        {"a.jpeg", jpegBegins}, {"b.jpg", jpegBegins}, {"c.JPG", jpegBegins},
        {"d.png", pngBegins},   {"e.Png", pngBegins},  {"f.ppm", ppmBegins}};
    for (const auto& [name, begin] : files) {
        writeImage(folder.file(name), makeSlopes(8, 8), -1, ImageFileType::Auto);
        EXPECT_EQ(firstBytes(folder.file(name), 3), begin) << name;
    }
}

TEST_F(WriteImageTest, AStatedTypeDoesNotLookAtTheName) {
    writeImage(folder.file("image"), makeSlopes(8, 8), -1, ImageFileType::Png);
    EXPECT_EQ(firstBytes(folder.file("image"), 3), pngBegins);
    writeImage(folder.file("image.png"), makeSlopes(8, 8), -1, ImageFileType::Jpeg);
    EXPECT_EQ(firstBytes(folder.file("image.png"), 3), jpegBegins);
}

TEST_F(WriteImageTest, AnUnknownExtensionIsReportedByTheLookup) {
    EXPECT_EQ(thrownText<tio::Exception>([&] { writeImage("a.gif", makeSlopes(8, 8)); }),
              "Unknown image file type extension: .gif");
    EXPECT_EQ(thrownText<std::out_of_range>([&] { writeImage("a", makeSlopes(8, 8)); }),
              "invalid string position");
}

TEST_F(WriteImageTest, ATypeThatIsNoneIsOutOfRangeBeforeAnythingIsMade) {
    const auto none = static_cast<ImageFileType>(4);
    EXPECT_EQ(thrownText<std::out_of_range>(
                  [&] { writeImage(folder.file("a.png"), makeSlopes(8, 8), -1, none); }),
              "invalid map<K, T> key");
    EXPECT_EQ(intercepted->avcodec_alloc_context3.count, 0);
    EXPECT_FALSE(std::filesystem::exists(folder.file("a.png")));
}

// What the encoder gets

struct Encoder {
    ImageFileType type;
    AVPixelFormat format;
};

class ImageEncoder : public WriteImageTest, public ::testing::WithParamInterface<Encoder> {};

TEST_P(ImageEncoder, GetsThePixelFormatOfItsFilesAndTheLevelUnchanged) {
    for (const int level : {-7, -1, 0, 9, 12}) {
        AVPixelFormat format = AV_PIX_FMT_NONE;
        int opened = 0;
        AVRational timeBase{};
        intercepted->avcodec_send_frame.instead = [&](AVCodecContext* codec, const AVFrame* frame) {
            format = static_cast<AVPixelFormat>(frame->format);
            opened = codec->compression_level;
            timeBase = codec->time_base;
            return test::real::sendFrame(codec, frame);
        };
        writeImage(folder.file("image"), makeSlopes(6, 10), level, GetParam().type);
        EXPECT_EQ(format, GetParam().format);
        EXPECT_EQ(opened, level);
        EXPECT_EQ(timeBase.num, 1);
        EXPECT_EQ(timeBase.den, 1);
    }
}

TEST_P(ImageEncoder, IsAskedForOnePacketOfOneFrame) {
    writeImage(folder.file("image"), makeSlopes(6, 10), -1, GetParam().type);
    EXPECT_EQ(intercepted->avcodec_send_frame.count, 1);
    EXPECT_EQ(intercepted->avcodec_receive_packet.count, 1);
}

INSTANTIATE_TEST_SUITE_P(Types, ImageEncoder,
                         ::testing::Values(Encoder{ImageFileType::Jpeg, AV_PIX_FMT_YUVJ420P},
                                           Encoder{ImageFileType::Png, AV_PIX_FMT_RGB24},
                                           Encoder{ImageFileType::Ppm, AV_PIX_FMT_RGB24}));

// What is written

class LosslessImage : public WriteImageTest,
                      public ::testing::WithParamInterface<std::tuple<std::string, int>> {};

TEST_P(LosslessImage, IsReadBackToTheLastBit) {
    const auto& [name, level] = GetParam();
    for (const int cols : {1, 2, 7, 33, 64, 854}) {
        for (const int rows : {1, 2, 9, 40}) {
            const Image image = makeSlopes(rows, cols);
            writeImage(folder.file(name), image, level);
            const Image read = readImage(folder.file(name));
            ASSERT_EQ(read.size, image.size);
            ASSERT_TRUE(bytesOf(read) == bytesOf(image)) << cols << " x " << rows;
            ASSERT_TRUE(test::oracleImage(folder.file(name)).pixels == bytesOf(image));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, LosslessImage,
                         ::testing::Combine(::testing::Values("image.png", "image.ppm"),
                                            ::testing::Values(-1, 0, 9)));

TEST_F(WriteImageTest, PpmIsAHeaderAndTheBytesOfTheImage) {
    const Image image = makeSlopes(3, 5);
    writeImage(folder.file("image.ppm"), image);
    const std::string header = "P6\n5 3\n255\n";
    std::vector<uint8_t> expected(header.begin(), header.end());
    const auto pixels = bytesOf(image);
    expected.insert(expected.end(), pixels.begin(), pixels.end());
    EXPECT_EQ(test::readBytes(folder.file("image.ppm")), expected);
}

double psnr(const Image& a, const Image& b) {
    const auto left = bytesOf(a);
    const auto right = bytesOf(b);
    double sum = 0;
    for (std::size_t i = 0; i < left.size(); ++i)
        sum += (left[i] - right[i]) * (left[i] - right[i]);
    return 10 * std::log10(255 * 255 * static_cast<double>(left.size()) / sum);
}

TEST_F(WriteImageTest, JpegLooksLikeTheImage) {
    const Image image = makeSlopes(240, 321);
    writeImage(folder.file("image.jpg"), image);
    const Image read = readImage(folder.file("image.jpg"));
    ASSERT_EQ(read.size, image.size);
    const double decibels = psnr(image, read);
    RecordProperty("psnr", std::to_string(decibels));
    EXPECT_GT(decibels, 38);
}

TEST_F(WriteImageTest, ReplacesTheFileThatWasThere) {
    test::writeBytes(folder.file("image.ppm"), std::vector<uint8_t>(5000, 7));
    writeImage(folder.file("image.ppm"), makeSlopes(1, 1));
    EXPECT_EQ(test::readBytes(folder.file("image.ppm")).size(), 11u + 3);
}

/// A copy of the image in a block of exactly its size, or with other bytes after it.
Image inBlock(const Image& image, std::size_t behind, char filling) {
    const std::size_t size = 3 * static_cast<std::size_t>(image.count);
    std::shared_ptr<char> block(new char[size + behind], std::default_delete<char[]>());
    std::memcpy(block.get(), image.data(), size);
    std::memset(block.get() + size, filling, behind);
    return Image(image.size, block);
}

// In an odd row swscale makes the last colour of two pixels, of which the second is not there.
TEST_F(WriteImageTest, WhatLiesBehindTheImageDoesNotShow) {
    const Image image = makeSlopes(5, 7);
    std::vector<std::vector<uint8_t>> files;
    for (const char filling : {'\x00', '\x55', '\xFF'}) {
        writeImage(folder.file("image.jpg"), inBlock(image, 64, filling));
        files.push_back(test::readBytes(folder.file("image.jpg")));
    }
    writeImage(folder.file("image.jpg"), inBlock(image, 0, 0));
    files.push_back(test::readBytes(folder.file("image.jpg")));
    EXPECT_THAT(files, ::testing::Each(files.front()));
}

TEST_F(WriteImageTest, WhatTheHeapHeldBeforeDoesNotShow) {
    for (int side = 1; side < 20; ++side) {
        const Image image = makeSlopes(side, 20 - side);
        std::vector<std::vector<uint8_t>> files;
        for (const int filling : {0x55, 0xAA}) {
            mallopt(M_PERTURB, filling);
            MatAlloc::getGlobalMatAlloc()->trim();
            writeImage(folder.file("image.jpg"), image);
            files.push_back(test::readBytes(folder.file("image.jpg")));
        }
        mallopt(M_PERTURB, 0);
        ASSERT_EQ(files[0], files[1]) << side;
    }
}

// Failures

TEST_F(WriteImageTest, ATypeWithoutEncoderIsAFailure) {
    intercepted->avcodec_find_encoder.instead = [](AVCodecID) { return nullptr; };
    const std::string message = "Could not find ffmpeg's encoder codec";
    EXPECT_EQ(thrownText<tio::Exception>([&] { writeImage("a.png", makeSlopes(8, 8)); }), message);
    expectLogged(message, 41, "codec");
}

TEST_F(WriteImageTest, AContextThatCannotBeAllocatedIsAFailure) {
    intercepted->avcodec_alloc_context3.instead = [](const AVCodec*) { return nullptr; };
    const std::string message = "Could not open codec for image writing";
    EXPECT_EQ(thrownText<tio::Exception>([&] { writeImage("a.png", makeSlopes(8, 8)); }), message);
    expectLogged(message, 45, "codecContext");
}

TEST_F(WriteImageTest, AFrameThatCannotBeAllocatedIsAFailure) {
    intercepted->av_frame_alloc.instead = [] { return nullptr; };
    const std::string message = "Could not allocate frame for image writing";
    EXPECT_EQ(thrownText<tio::Exception>([&] { writeImage("a.png", makeSlopes(8, 8)); }), message);
    expectLogged(message, 59, "frame");
}

struct FailingCall {
    int number;
    std::function<void(test::Calls&)> set;
};

class FailingWrite : public WriteImageTest, public ::testing::WithParamInterface<FailingCall> {};

TEST_P(FailingWrite, ThrowsFfmpegsWordsAndThePlaceAndMakesNoFile) {
    GetParam().set(test::calls());
    const std::string text =
        thrownText<Exception>([&] { writeImage(folder.file("a.png"), makeSlopes(8, 8)); });
    EXPECT_EQ(text, "Invalid argument @ ..\\src\\TARN\\videoio\\WriteImage:" +
                        std::to_string(GetParam().number));
    EXPECT_THAT(log.linesAt(5), ElementsAre(text));
    EXPECT_FALSE(std::filesystem::exists(folder.file("a.png")));
}

const auto fails = [](auto&&...) { return AVERROR(EINVAL); };

INSTANTIATE_TEST_SUITE_P(
    Calls, FailingWrite,
    ::testing::Values(
        FailingCall{54, [](test::Calls& c) { c.avcodec_open2.instead = fails; }},
        FailingCall{65, [](test::Calls& c) { c.av_frame_get_buffer.instead = fails; }},
        FailingCall{74, [](test::Calls& c) { c.avcodec_send_frame.instead = fails; }},
        FailingCall{82, [](test::Calls& c) { c.avcodec_receive_packet.instead = fails; }}),
    [](const auto& call) { return "At" + std::to_string(call.param.number); });

TEST_F(WriteImageTest, AnImageWithoutPixelsIsRefusedByFfmpeg) {
    EXPECT_THROW(writeImage(folder.file("a.png"), Image()), Exception);
    EXPECT_THROW(writeImage(folder.file("a.jpg"), Image(Vec<int, 2>(0, 5))), Exception);
}

TEST_F(WriteImageTest, AFileThatCannotBeOpenedIsNamed) {
    const std::string path = folder.file("no such folder/a.png");
    EXPECT_EQ(thrownText<tio::Exception>([&] { writeImage(path, makeSlopes(8, 8)); }),
              "Could not open " + path);
    expectLogged("Could not open " + path, 87, "f");
}

class FailedWrite : public WriteImageTest {
protected:
    void expectFails(const std::string& path, const Image& image) {
        const std::string message = "Could not write to " + path;
        EXPECT_EQ(
            thrownText<tio::Exception>([&] { writeImage(path, image, -1, ImageFileType::Ppm); }),
            message);
        expectLogged(message, 90, "fwrite(data, 1, size, f) == size");
    }
};

TEST_F(FailedWrite, IsNamedAndLeavesTheFileOpenAndAPartOfIt) {
    intercepted->fwrite.instead = [](const void* from, std::size_t size, std::size_t count,
                                     std::FILE* file) {
        return test::real::write(from, size, count / 2, file);
    };
    expectFails(folder.file("a.ppm"), makeSlopes(8, 8));
    EXPECT_TRUE(std::filesystem::exists(folder.file("a.ppm")));
    EXPECT_EQ(intercepted->fclose.count, 0);
}

TEST_F(FailedWrite, OfASmallFileShowsWhenItIsClosed) {
    const std::string full = "/dev/full";
    if (!std::filesystem::exists(full))
        GTEST_SKIP() << "this system has no " << full;
    expectFails(full, makeSlopes(1, 1));
    EXPECT_EQ(intercepted->fclose.count, 1) << "all was taken until then";
}

TEST_F(FailedWrite, OfALargeFileShowsAtOnce) {
    const std::string full = "/dev/full";
    if (!std::filesystem::exists(full))
        GTEST_SKIP() << "this system has no " << full;
    expectFails(full, makeSlopes(300, 300));
    EXPECT_EQ(intercepted->fclose.count, 0);
}

} // namespace
} // namespace tio::ffmpeg
