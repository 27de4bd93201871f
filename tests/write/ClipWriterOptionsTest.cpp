#include "ClipWriterFixture.h"
#include "ReadBack.h"
#include "support/Expectations.h"

#include <TARN/videoio/ClipWriter.h>

#include <cmath>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipWriterTest;
using test::Fraction;
using test::rgbPicture;
using test::timesIn;
using ::testing::AllOf;
using ::testing::HasSubstr;

class ClipWriterOptionsTest : public ClipWriterTest {
protected:
    [[nodiscard]] std::string refusal(const ClipWriterOptions& options) const {
        const std::string text =
            test::thrownText<ClipRefusal>([&] { ClipWriter(file("clip.mp4"), options); });
        EXPECT_EQ(filesLeft(), 0);
        return text;
    }
};

TEST_F(ClipWriterOptionsTest, NumbersThatNameNothingAreRefused) {
    for (const int32_t number : {-1, 9}) {
        ClipWriterOptions colours;
        colours.colours = static_cast<ClipColours>(number);
        EXPECT_THAT(refusal(colours), HasSubstr("colours " + std::to_string(number)));
        ClipWriterOptions origin;
        origin.origin = static_cast<ClipOrigin>(number);
        EXPECT_THAT(refusal(origin), HasSubstr("origin " + std::to_string(number)));
    }
}

// x264 and x265 end at 51, the others at 63; what is beyond would be written with another quality.
TEST_F(ClipWriterOptionsTest, QualitiesBeyondTheEncodersScaleAreRefused) {
    struct Scale {
        const char* codec;
        double most;
    };
    for (const Scale& scale : {Scale{"libx264", 51}, {"libx265", 51}, {"libvpx-vp9", 63}}) {
        ClipWriterOptions options;
        options.codec = scale.codec;
        for (const double beyond : {-1.0, -0.5, scale.most + 1, 400.0, double{NAN}, 1e300}) {
            options.crf = beyond;
            EXPECT_THAT(refusal(options),
                        AllOf(HasSubstr(scale.codec),
                              HasSubstr("0 to " + std::to_string(std::lround(scale.most)))));
        }
        for (const double within : {0.0, scale.most}) {
            options.crf = within;
            EXPECT_NO_THROW(ClipWriter(file("clip.mp4"), options)) << scale.codec << within;
        }
    }
}

TEST_F(ClipWriterOptionsTest, ABadPresetIsNamedWithItsEncoder) {
    for (const char* codec : {"libx264", "libsvtav1", "libvpx-vp9"}) {
        ClipWriterOptions options;
        if (avcodec_find_encoder_by_name(codec) == nullptr)
            continue;
        options.codec = codec;
        options.preset = "warp";
        EXPECT_THAT(refusal(options), AllOf(HasSubstr(codec), HasSubstr("preset \"warp\"")));
    }
}

TEST_F(ClipWriterOptionsTest, SignsOnBothSidesOfAFractionAreNone) {
    ClipWriterOptions options;
    options.rate = Fraction(-25, -1);
    options.timeBase = Fraction(-1, -25);
    options.sampleAspectRatio = Fraction(-4, -3);
    options.chapters = {{Fraction(-1, -25), Fraction(-2, -25), "One"}};
    ClipWriter writer(file("clip.mkv"), options);
    for (int i = 0; i < 4; ++i)
        writer.writePicture(rgbPicture(i));
    writer.finish();
    const test::ReadBack clip(file("clip.mkv"), AVMEDIA_TYPE_VIDEO);
    EXPECT_EQ(clip.stream().avg_frame_rate.num, 25);
    EXPECT_EQ(clip.stream().avg_frame_rate.den, 1);
    EXPECT_EQ(clip.stream().codecpar->sample_aspect_ratio.num, 4);
    EXPECT_EQ(clip.stream().codecpar->sample_aspect_ratio.den, 3);
    EXPECT_EQ(timesIn(file("clip.mkv")).at(3), Fraction(3, 25));
    ASSERT_EQ(clip.file().nb_chapters, 1U);
    const AVChapter& chapter = *clip.file().chapters[0];
    EXPECT_EQ(test::secondsOf(chapter.start, chapter.time_base), Fraction(1, 25));
    EXPECT_EQ(test::secondsOf(chapter.end, chapter.time_base), Fraction(2, 25));
}

TEST_F(ClipWriterOptionsTest, ChaptersEndWhereNanosecondsHoldIt) {
    constexpr int64_t last = INT64_MAX / 1000000000; // seconds
    ClipWriterOptions options;
    options.chapters = {{0, 1, "One"}, {1, last + 1, "Two"}};
    EXPECT_THAT(refusal(options), HasSubstr("\"Two\""));
    options.chapters = {{0, last, "One"}};
    write("clip.mkv", {0}, options);
    const test::ReadBack clip(file("clip.mkv"), AVMEDIA_TYPE_VIDEO);
    ASSERT_EQ(clip.file().nb_chapters, 1U);
    const AVChapter& chapter = *clip.file().chapters[0];
    EXPECT_EQ(test::secondsOf(chapter.end, chapter.time_base), Fraction(last));
}

// MP4 has 31 bits for the ticks of a chapter, and takes ticks as fine as the times ask for.
TEST_F(ClipWriterOptionsTest, LongChaptersStayWhereTheyAreAmongFineTimes) {
    ClipWriterOptions options;
    options.chapters = {{0, 3600, "One"}, {7200, 9000, "Two"}};
    write("clip.mp4", {0, Fraction(1, 1000000), Fraction(2, 1000000)}, options);
    const test::ReadBack clip(file("clip.mp4"), AVMEDIA_TYPE_VIDEO);
    ASSERT_EQ(clip.file().nb_chapters, 2U);
    const AVChapter& last = *clip.file().chapters[1];
    EXPECT_EQ(test::secondsOf(last.start, last.time_base), Fraction(7200));
    EXPECT_EQ(test::secondsOf(last.end, last.time_base), Fraction(9000));
    EXPECT_EQ(timesIn(file("clip.mp4")).at(1), Fraction(1, 1000000));
    ClipWriter writer(file("next.mp4"), options);
    EXPECT_THROW(writer.writePicture(rgbPicture(0), Fraction(1, 1000000)), TimeRefusal);
    writer.writePicture(rgbPicture(0), Fraction(1, 1000));
    writer.finish();
    EXPECT_EQ(timesIn(file("next.mp4")), test::Times{Fraction(1, 1000)});
}

TEST_F(ClipWriterOptionsTest, ChaptersTooLongForMp4AreRefused) {
    ClipWriterOptions options;
    options.chapters = {{0, 2147484, "One"}}; // milliseconds beyond 31 bits
    EXPECT_THAT(refusal(options), HasSubstr("24 days"));
    options.chapters = {{0, 2147483, "One"}};
    write("clip.mp4", {0}, options);
    const test::ReadBack clip(file("clip.mp4"), AVMEDIA_TYPE_VIDEO);
    ASSERT_EQ(clip.file().nb_chapters, 1U);
    const AVChapter& chapter = *clip.file().chapters[0];
    EXPECT_EQ(test::secondsOf(chapter.end, chapter.time_base), Fraction(2147483));
}

TEST_F(ClipWriterOptionsTest, TimesWithoutAValueAreToldAsSuch) {
    ClipWriter writer(file("clip.mp4"));
    for (const Fraction& none : {Fraction(1, 0), Fraction(0, 0)}) {
        const std::string text =
            test::thrownText<TimeRefusal>([&] { writer.writePicture(rgbPicture(0), none); });
        EXPECT_THAT(text, AllOf(HasSubstr("clip.mp4"), HasSubstr("/0 has no value")));
    }
    const std::string far = test::thrownText<TimeRefusal>(
        [&] { writer.writePicture(rgbPicture(0), Fraction(INT64_MIN, -1)); });
    EXPECT_THAT(far, HasSubstr("-9223372036854775808/-1"));
    writer.writePicture(rgbPicture(0), Fraction(0));
    writer.finish();
    EXPECT_EQ(timesIn(file("clip.mp4")).size(), 1U);
}

TEST_F(ClipWriterOptionsTest, SoundThatNeverComesLeavesNoTrack) {
    ClipWriterOptions options;
    options.audioRate = 48000;
    ClipWriter writer(file("clip.mp4"), options);
    writer.writePicture(rgbPicture(0), Fraction(0));
    writer.writeSamples(nullptr, 0, 2);
    writer.finish();
    const test::ReadBack clip(file("clip.mp4"), AVMEDIA_TYPE_VIDEO);
    EXPECT_EQ(clip.file().nb_streams, 1U);
}

} // namespace
} // namespace tio::ffmpeg
