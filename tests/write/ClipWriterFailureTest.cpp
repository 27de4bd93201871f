#include "ClipWriterFixture.h"
#include "ReadBack.h"
#include "support/Expectations.h"
#include "support/Interception.h"

#include <TARN/videoio/ClipWriter.h>
#include <TARN/videoio/Exception.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipWriterTest;
using test::Fraction;
using test::rgbPicture;
using test::Times;
using test::timesIn;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

// Pictures that an encoder fails to take, and writers in other processes.

class ClipWriterFailureTest : public ClipWriterTest {
protected:
    /// A call that the encoder fails, once.
    template <typename Call>
    void expectFailure(Call&& call) {
        ffmpeg->avcodec_send_frame.instead = [](AVCodecContext*, const AVFrame*) {
            return AVERROR(ENOMEM);
        };
        EXPECT_THAT(test::thrownText<Exception>(call), HasSubstr("clip."));
        ffmpeg->avcodec_send_frame.instead = nullptr;
    }

    static uint16_t* rowOf(const ImageView& view, int plane, int row) {
        const auto index = static_cast<std::size_t>(plane);
        return reinterpret_cast<uint16_t*>(view.planes[index] + row * view.strides[index]);
    }

    test::Interception ffmpeg;
};

TEST_F(ClipWriterFailureTest, AFailedPictureAfterAPauseLeavesNothingBehind) {
    for (const char* name : {"clip.mp4", "clip.mkv"}) {
        ClipWriterOptions options;
        // Decoded as 0 4 2 1 3 8 6 5 7 12 10 …: the tenth is in its place, but after the twelfth.
        options.options = {{"bf", "3"}, {"b_strategy", "0"}, {"sc_threshold", "0"}};
        ClipWriter writer(file(name), options);
        Times times;
        for (int i = 0; i < 60; ++i) {
            if (i == 10)
                expectFailure([&] { writer.writePicture(rgbPicture(i), Fraction(1000)); });
            times.emplace_back(i, 25);
            writer.writePicture(rgbPicture(i), times.back());
        }
        writer.finish();
        EXPECT_THAT(timesIn(file(name)), ElementsAreArray(times)) << name;
    }
}

TEST_F(ClipWriterFailureTest, AFailedFirstPictureDecidesOnNothing) {
    ClipWriter writer(file("clip.mp4"));
    expectFailure([&] { writer.writePicture(rgbPicture(0, 32, 32), Fraction(0)); });
    EXPECT_THROW(writer.finish(), ClipRefusal);
    writer.writePicture(rgbPicture(0, 48, 64), Fraction(1, 25));
    EXPECT_THROW(writer.writePicture(rgbPicture(1, 32, 32), Fraction(2, 25)), ClipRefusal);
    writer.finish();
    const test::ReadBack clip(file("clip.mp4"), AVMEDIA_TYPE_VIDEO);
    EXPECT_EQ(clip.stream().codecpar->width, 64);
    EXPECT_EQ(clip.stream().codecpar->height, 48);
    EXPECT_EQ(timesIn(file("clip.mp4")), Times{Fraction(1, 25)});
}

// Times finer than 1/5000000 s forbid B-pictures, without which later times may be finer still.
// An encoder that computes with them stops the process.
TEST_F(ClipWriterFailureTest, ASampleAboveItsTenBitsIsRefused) {
    struct Place {
        PictureFormat format;
        int plane;
        int row;
        int column;
    };
    for (const Place& place :
         {Place{PictureFormat::Yuv420P10, 0, 31, 33}, Place{PictureFormat::Yuv420P10, 2, 15, 16},
          Place{PictureFormat::Yuv422P10, 1, 31, 0}, Place{PictureFormat::Yuv444P10, 2, 0, 33}}) {
        SCOPED_TRACE(static_cast<int>(place.format));
        Image picture(place.format, 32, 34);
        const ImageView& view = picture.view();
        const auto fill = [&](uint16_t sample) {
            for (int one = 0; one < 3; ++one) {
                const PlaneSize size = planeSize(place.format, 32, 34, one);
                for (int line = 0; line < size.rows; ++line)
                    std::fill_n(rowOf(view, one, line), size.rowBytes / 2, sample);
            }
        };
        fill(1023);
        ClipWriter writer(file("clip.mp4"), test::withCodec("libx264"));
        rowOf(view, place.plane, place.row)[place.column] = 1024;
        EXPECT_THAT(test::thrownText<ClipRefusal>([&] { writer.writePicture(picture, 0); }),
                    HasSubstr("clip.mp4\": a sample of 1024 in a picture of 10 bits, in column " +
                              std::to_string(place.column) + " of row " +
                              std::to_string(place.row) + " of plane " +
                              std::to_string(place.plane)));
        for (int i = 0; i < 30; ++i) {
            fill(i % 3 == 0 ? 1023 : 0);
            writer.writePicture(picture, Fraction(i, 25));
        }
        writer.finish();
        EXPECT_EQ(timesIn(file("clip.mp4")).size(), 30);
    }
}

TEST_F(ClipWriterFailureTest, AFailedFineTimeDoesNotForbidReordering) {
    if (!test::beginsAnywhere())
        GTEST_SKIP()
            << "this FFmpeg begins tracks at milliseconds alone, and refuses the fine time";
    ClipWriter writer(file("clip.mp4"));
    expectFailure([&] { writer.writePicture(rgbPicture(0), Fraction(1, 6000000)); });
    for (int i = 0; i < 8; ++i)
        writer.writePicture(rgbPicture(i), Fraction(i, 25));
    // 28 bits hold 0.2 s, the way of five pictures, in at most 1342177275 ticks a second.
    EXPECT_THROW(writer.writePicture(rgbPicture(8), Fraction(480000001, 1500000000)), TimeRefusal);
    writer.writePicture(rgbPicture(8), Fraction(320000001, 1000000000));
    writer.finish();
    EXPECT_EQ(timesIn(file("clip.mp4")).back(), Fraction(320000001, 1000000000));
}

TEST_F(ClipWriterFailureTest, AForkedProcessCanLeaveAWriterButNotUseIt) {
    ClipWriterOptions options;
    options.threads = 2;
    options.audioRate = 48000;
    auto writer = std::make_unique<ClipWriter>(file("clip.mp4"), options);
    Times times;
    for (int i = 0; i < 60; ++i) {
        times.emplace_back(i, 25);
        writer->writePicture(rgbPicture(i), times.back());
    }
    const std::vector<float> samples(5000);
    writer->writeSamples(samples.data(), samples.size(), 1);
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(60); // ends a child that hangs
        const auto refuses = [](const auto& call) {
            try {
                call();
            } catch (const ClipRefusal&) {
                return true;
            }
            return false;
        };
        bool well = refuses([&] { writer->writePicture(rgbPicture(0), Fraction(100)); });
        well = refuses([&] { writer->writeSamples(samples.data(), 10, 1); }) && well;
        well = refuses([&] { writer->finish(); }) && well;
        writer.reset();
        ::_exit(well ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    writer->finish();
    EXPECT_THAT(timesIn(file("clip.mp4")), ElementsAreArray(times));
    EXPECT_EQ(filesLeft(), 1);
}

} // namespace
} // namespace tio::ffmpeg
