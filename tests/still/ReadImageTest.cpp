#include "ReadImageFixture.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Ffmpeg.h"
#include "support/ImagePixels.h"
#include "support/Interception.h"
#include "support/ScriptedStream.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/ReadImage.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tio {
namespace {

using test::bytesOf;
using test::expectSamePixels;
using test::thrownText;
using ::testing::HasSubstr;

using test::motionJpeg;
using test::planOf;
using test::ReadImageTest;

using Image = test::RgbImage;

// What is read

struct MadeImage {
    const char* name;
    const char* extension;
    test::ImagePlan plan;
};

void PrintTo(const MadeImage& image, std::ostream* out) {
    *out << image.name;
}

test::ImagePlan interlaced(test::ImagePlan plan) {
    plan.options["flags"] = "+ildct";
    return plan;
}

class ReadMadeImage : public ReadImageTest, public ::testing::WithParamInterface<MadeImage> {};

TEST_P(ReadMadeImage, HasThePixelsThatFfmpegDecodes) {
    const std::string path = make(std::string("image") + GetParam().extension, GetParam().plan);
    const test::OracleImage expected = test::oracleImage(path);
    ASSERT_EQ(expected.width, GetParam().plan.width);
    expectSamePixels(readImage(path), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Images, ReadMadeImage,
    ::testing::Values(MadeImage{"Jpeg420", ".jpg", planOf("mjpeg", "yuvj420p")},
                      MadeImage{"Jpeg422", ".jpeg", planOf("mjpeg", "yuvj422p")},
                      MadeImage{"Jpeg444", ".JPG", planOf("mjpeg", "yuvj444p")},
                      MadeImage{"JpegOfOnePixel", ".jpg", planOf("mjpeg", "yuvj420p", 1, 1)},
                      MadeImage{"JpegLossless", ".jpg", planOf("ljpeg", "bgr24")},
                      MadeImage{"PngRgb", ".png", planOf("png", "rgb24")},
                      MadeImage{"PngRgbOfAwkwardWidth", ".PNG", planOf("png", "rgb24", 54, 5)},
                      MadeImage{"PngInterlaced", ".png", interlaced(planOf("png", "rgb24"))},
                      MadeImage{"PngGray", ".png", planOf("png", "gray")},
                      MadeImage{"PngGrayOf16Bits", ".png", planOf("png", "gray16be")},
                      MadeImage{"PngGrayWithAlpha", ".png", planOf("png", "ya8")},
                      MadeImage{"PngBlackAndWhite", ".png", planOf("png", "monob")},
                      MadeImage{"PngOf16Bits", ".png", planOf("png", "rgb48be")},
                      MadeImage{"PngWithAlpha", ".png", planOf("png", "rgba")},
                      MadeImage{"PngWithAlphaOf16Bits", ".png", planOf("png", "rgba64be")},
                      MadeImage{"PngNamedJpeg", ".jpg", planOf("png", "rgb24")},
                      MadeImage{"BmpNamedPng", ".png", planOf("bmp", "bgr24")}),
    [](const auto& made) { return std::string(made.param.name); });

TEST_F(ReadImageTest, APaletteImageHasTheColoursOfItsPalette) {
    test::ImagePlan plan = planOf("png", "pal8", 16, 8);
    const std::string path = make("palette.png", plan);
    expectSamePixels(readImage(path), test::oracleImage(path));
}

TEST_F(ReadImageTest, TheOtherNamespaceReadsTheSameImage) {
    const std::string path = make("image.png", {});
    EXPECT_TRUE(bytesOf(ffmpeg::readImage(path)) == bytesOf(readImage(path)));
}

TEST_F(ReadImageTest, ANameWithAPatternIsAFileLikeAnyOther) {
    const test::OracleImage expected = test::oracleImage(make("plain.png", {}));
    for (const std::string name :
         {"a%03d.png", "b%d.png", "c*.png", "d%*.png", "e[1].png", "f%%.png", "g{1,2}.png"})
        expectSamePixels(readImage(make(name, {})), expected);
    const std::string jpeg = make("plain.jpg", planOf("mjpeg", "yuvj420p"));
    std::filesystem::copy_file(jpeg, folder.file("a%03d.jpg"));
    expectSamePixels(readImage(folder.file("a%03d.jpg")), test::oracleImage(jpeg));
}

TEST_F(ReadImageTest, ANumberedNeighbourIsNotTakenForTheFile) {
    test::ImagePlan other;
    other.number = 99;
    (void)make("a001.png", other);
    expectSamePixels(readImage(make("a%03d.png", {})), test::oracleImage(make("plain.png", {})));
}

TEST_F(ReadImageTest, TheFirstStreamIsReadThoughAnotherIsBetter) {
    const test::ClipPlan small = motionJpeg();
    test::ClipPlan large = small;
    large.width = 400;
    large.height = 300;
    const std::string path = folder.file("two.jpg");
    test::writePackets(path, "matroska", {test::encodeVideo(small), test::encodeVideo(large)});
    EXPECT_EQ(readImage(path).size, (Vec<int, 2>(64, 96)));
}

TEST_F(ReadImageTest, ARotateTagTurnsTheImage) {
    const std::string path = makeTurned(90);
    const test::OracleImage stored = test::oracleImage(path);
    const Image turned = readImage(path);
    ASSERT_EQ(turned.size, (Vec<int, 2>(stored.width, stored.height))) << "sides exchanged";
    // What is stored at the left end of a row from the bottom stands at the top now. Colours lie
    // between pixels, so that they are interpolated a little differently.
    const int bottom = stored.height - 1;
    for (int col = 0; col < turned.cols(); ++col) {
        const auto from = static_cast<std::size_t>(3 * (bottom - col) * stored.width);
        EXPECT_NEAR(turned(0, col)[1], stored.pixels.at(from + 1), 8) << col;
    }
}

TEST_F(ReadImageTest, AHalfTurnKeepsTheSides) {
    EXPECT_EQ(readImage(makeTurned(180)).size, (Vec<int, 2>(64, 96)));
}

// PPM

TEST_F(ReadImageTest, PpmNeverReachesFfmpeg) {
    const test::Interception intercepted;
    EXPECT_EQ(bytesOf(readImage(write("image.PPM", "P3 1 1 255 7 8 9"))),
              (std::vector<uint8_t>{7, 8, 9}));
    std::filesystem::copy_file(make("image.png", {}), folder.file("png.ppm"));
    EXPECT_EQ(thrownText<Exception>([&] { (void)readImage(folder.file("png.ppm")); }),
              "PPM: the image begins with neither P6 nor P3");
    EXPECT_EQ(intercepted->avformat_open_input.count, 0);
}

TEST_F(ReadImageTest, PpmNamedPngIsReadByFfmpeg) {
    const test::Interception intercepted;
    const std::string path = make("image.png", planOf("ppm", "rgb24"));
    EXPECT_EQ(readImage(path).size, (Vec<int, 2>(21, 33)));
    EXPECT_EQ(intercepted->avformat_open_input.count, 1);
}

TEST_F(ReadImageTest, AMissingPpmIsReportedByItsReader) {
    EXPECT_EQ(thrownText<Exception>([&] { (void)readImage(folder.file("none.ppm")); }),
              "PPM: the stream cannot be read");
}

TEST_F(ReadImageTest, AFolderNamedPpmIsReportedByItsReader) {
    std::filesystem::create_directory(folder.file("folder.ppm"));
    EXPECT_EQ(thrownText<Exception>([&] { (void)readImage(folder.file("folder.ppm")); }),
              "PPM: the image begins with neither P6 nor P3");
}

// Names

TEST_F(ReadImageTest, AnUnknownExtensionIsRefused) {
    EXPECT_EQ(thrownText<Exception>([] { (void)readImage("photo.gif"); }),
              "Unknown image file type extension: .gif");
}

TEST_F(ReadImageTest, APathWithoutADotIsRefused) {
    EXPECT_EQ(thrownText<std::out_of_range>([] { (void)readImage("photo"); }),
              "invalid string position");
}

// Packets

TEST_F(ReadImageTest, PacketsOfOtherStreamsAndEmptyOnesArePassedOver) {
    const test::Interception intercepted;
    const std::string path = make("image.png", {});
    int number = 0;
    intercepted->av_read_frame.instead = [&](AVFormatContext* context, AVPacket* packet) {
        if (++number > 2)
            return test::real::readFrame(context, packet);
        test::check(av_new_packet(packet, number == 1 ? 8 : 0), "packet");
        packet->stream_index = number == 1 ? 7 : 0;
        return 0;
    };
    expectSamePixels(readImage(path), test::oracleImage(path));
}

// Photos

class Photo : public ReadImageTest, public ::testing::WithParamInterface<int> {
protected:
    Photo() {
        path = make("photo.jpg", planOf("mjpeg", "yuvj444p", 48, 32));
        test::addExifOrientation(path, GetParam());
    }

    std::string path;
};

TEST_P(Photo, IsReadAsItIsStored) {
    expectSamePixels(readImage(path), test::oracleImage(path));
}

TEST_P(Photo, IsReadUprightWhereThatIsAskedFor) {
    const Image image = readImageUpright(path);
    const Image stored = readImage(path);
    const int bottom = stored.rows() - 1;
    const int right = stored.cols() - 1;
    ASSERT_EQ(image.size, GetParam() < 5 ? stored.size : (Vec<int, 2>(48, 32)));
    for (int row = 0; row < image.rows(); ++row) {
        for (int col = 0; col < image.cols(); ++col) {
            const std::array<Vec<int, 2>, 8> from = {Vec<int, 2>(row, col),
                                                     Vec<int, 2>(row, right - col),
                                                     Vec<int, 2>(bottom - row, right - col),
                                                     Vec<int, 2>(bottom - row, col),
                                                     Vec<int, 2>(col, row),
                                                     Vec<int, 2>(bottom - col, row),
                                                     Vec<int, 2>(bottom - col, right - row),
                                                     Vec<int, 2>(col, right - row)};
            const auto& place = from.at(static_cast<std::size_t>(GetParam() - 1));
            ASSERT_EQ(image(row, col), stored(place[0], place[1])) << row << ", " << col;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Orientations, Photo, ::testing::Range(1, 9));

TEST_F(ReadImageTest, AStreamThatSaysHowItIsTurnedIsTurnedOnce) {
    const std::string path = makeTurned(90);
    EXPECT_TRUE(bytesOf(readImageUpright(path)) == bytesOf(readImage(path)));
}

TEST_F(ReadImageTest, ImagesWithoutOrientationAreUprightAsTheyAre) {
    const std::string png = make("image.png", {});
    EXPECT_TRUE(bytesOf(readImageUpright(png)) == bytesOf(readImage(png)));
    EXPECT_EQ(bytesOf(readImageUpright(write("image.ppm", "P6 1 1 255\nabc"))),
              (std::vector<uint8_t>{'a', 'b', 'c'}));
}

// From other places than files

/// The same bytes as memory and as a stream.
std::vector<ffmpeg::Source> sourcesOf(const std::string& path) {
    const auto bytes = test::readBytes(path);
    return {ffmpeg::Source(path), ffmpeg::Source::memory(bytes, "upload"),
            test::scriptedSource({bytes, {}, {}, {}})};
}

TEST_F(ReadImageTest, MemoryAndStreamsGiveTheImageOfTheFile) {
    for (const std::string& path :
         {make("image.png", {}), make("image.jpg", planOf("mjpeg", "yuvj420p")),
          write("image.ppm", "P6 2 1 255\nabcdef"), write("text.ppm", "P3 1 1 65535 7 800 9")})
        for (const ffmpeg::Source& source : sourcesOf(path))
            EXPECT_EQ(bytesOf(ffmpeg::readImageFrom(source)), bytesOf(readImage(path)))
                << path << " " << source.name();
}

TEST_F(ReadImageTest, TheBytesDecideAndNotTheName) {
    const std::string png = make("image.png", {});
    const auto expected = bytesOf(readImage(png));
    for (const char* name : {"image.ppm", "image.txt", "noextension", "image.h264"}) {
        test::writeBytes(folder.file(name), test::readBytes(png));
        EXPECT_EQ(bytesOf(ffmpeg::readImageFrom(folder.file(name))), expected) << name;
    }
    EXPECT_EQ(bytesOf(ffmpeg::readImageFrom(write("ppm.png", "P6 1 1 255\nabc"))),
              bytesOf(readImage(write("a.ppm", "P6 1 1 255\nabc"))));
}

TEST_F(ReadImageTest, AFailureFromASourceNamesIt) {
    const std::string png = make("cut.png", {});
    test::truncateFile(png, 60);
    const std::string cutPpm = write("cut.ppm", "P6 9 9 255\nabc");
    for (const std::string& path : {png, cutPpm, write("text.jpg", "Not a picture."),
                                    write("empty.png", ""), folder.file("missing.png")})
        for (const bool inMemory : {false, true}) {
            const bool exists = std::filesystem::exists(path);
            const ffmpeg::Source source =
                inMemory ? ffmpeg::Source::memory(
                               exists ? test::readBytes(path) : std::vector<uint8_t>{}, "upload")
                         : ffmpeg::Source(path);
            try {
                (void)ffmpeg::readImageFrom(source);
                ADD_FAILURE() << path;
            } catch (const Exception& failure) {
                EXPECT_THAT(failure.what(), HasSubstr(source.name()));
            }
        }
}

TEST_F(ReadImageTest, AStreamThatFailsIsToldWhateverTheImage) {
    for (const std::string& path : {make("image.png", {}), write("a.ppm", "P6 1 1 255\nabc")})
        for (const int64_t limit : {0, 1, 5}) {
            const auto torn = [limit](int64_t position, int64_t, int64_t honest) {
                if (position >= limit)
                    throw std::runtime_error("torn");
                return std::min<int64_t>(honest, 1);
            };
            const auto source = test::scriptedSource({test::readBytes(path), torn, {}, {}});
            try {
                (void)ffmpeg::readImageFrom(source);
                ADD_FAILURE() << path << limit;
            } catch (const ffmpeg::Exception& failure) {
                EXPECT_STREQ(failure.what(), "Reading \"scripted clip\" failed: torn");
            }
        }
}

} // namespace
} // namespace tio
