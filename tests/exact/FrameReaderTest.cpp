#include "FrameReaderFixture.h"
#include "support/ClipMaker.h"
#include "support/Encoding.h"
#include "support/Expectations.h"
#include "support/ReaderPictures.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <gtest/gtest.h>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::FrameReaderTest;
using test::IsFraction;
using test::numberIn;
using testing::ElementsAre;
using testing::HasSubstr;

using Reached = FrameReader::Reached;

TEST_F(FrameReaderTest, GivesTheFrameOfThatNumber) {
    FrameReader& frames = open({});
    for (const int64_t number : {17, 3, 24, 0, 12, 11}) {
        const auto picture = frames.readFrame(number);
        EXPECT_EQ(numberIn(picture), number);
        EXPECT_EQ(picture.number, number);
    }
}

TEST_F(FrameReaderTest, TurnsPicturesUpright) {
    ClipPlan plan;
    plan.rotation = 90;
    const auto picture = open(plan).readFrame(13);
    const auto& rgb = test::rgbOf(picture);
    EXPECT_EQ(rgb.size[0], 96);
    EXPECT_EQ(rgb.size[1], 64);
    EXPECT_EQ(test::readPictureNumber(rgb.plane.data(), 64, 96, 1), 13);
}

TEST_F(FrameReaderTest, ConvertsToNv12) {
    test::makeClip(clip, {});
    FrameReader frames(std::make_shared<InputFormatContext>(clip), PixelFormat::NV12);
    const auto picture = frames.readFrame(5);
    const auto& planes = static_cast<const Frame<tio::PixelFormat::NV12>&>(*picture.frame).planes;
    EXPECT_EQ(planes[0].rows(), 64);
    EXPECT_EQ(planes[1].cols(), 96);
}

class MissingFrameNumber : public FrameReaderTest, public testing::WithParamInterface<int64_t> {};

TEST_P(MissingFrameNumber, ThrowsForEveryQuestionAboutIt) {
    FrameReader& frames = open({});
    const std::string text =
        test::thrownText<tio::Exception>([&] { static_cast<void>(frames.readFrame(GetParam())); });
    EXPECT_EQ(text, "Frame number " + std::to_string(GetParam()) + " is outside 0 to 24 of \"" +
                        clip + "\"");
    EXPECT_THROW(static_cast<void>(frames.frameTime(GetParam())), tio::Exception);
    EXPECT_THROW(static_cast<void>(frames.frameDuration(GetParam())), tio::Exception);
    EXPECT_THROW(static_cast<void>(frames.isKeyFrame(GetParam())), tio::Exception);
}

INSTANTIATE_TEST_SUITE_P(Numbers, MissingFrameNumber,
                         testing::Values(-1, 25, INT64_MIN, INT64_MAX));

TEST_F(FrameReaderTest, FindsNoFrameInAStreamWithoutPackets) {
    test::writePackets(clip, "avi", {test::bareVideoTrack(AV_CODEC_ID_MPEG4, 64, 48, {1, 25})});
    FrameReader& frames = openAgain();
    EXPECT_EQ(frames.frameCount(), 0);
    EXPECT_THAT(test::thrownText<tio::Exception>([&] { static_cast<void>(frames.readFrame(0)); }),
                HasSubstr("there are no frames"));
    EXPECT_THROW(static_cast<void>(frames.frameNumberAt({0, 1})), tio::Exception);
}

TEST_F(FrameReaderTest, RefusesAnInputWithoutVideo) {
    const test::Track sound = test::encodeTone(0.2, false);
    test::writePackets(clip, "matroska", {sound});
    EXPECT_THAT(test::thrownText<Exception>([&] { openAgain(); }),
                HasSubstr("Could not find stream of requested type"));
}

TEST_F(FrameReaderTest, LeavesTheContextOfTheCallerWhereItIs) {
    test::makeClip(clip, {});
    const auto input = std::make_shared<InputFormatContext>(clip);
    FrameReader frames(input, PixelFormat::RGB);
    VideoStreamDecoder decoder(input, PixelFormat::RGB);
    static_cast<void>(frames.readFrame(20));
    EXPECT_THAT(decoder.readNextFrame().timestamp, IsFraction(0, 1));
    static_cast<void>(frames.readFrame(3));
    EXPECT_THAT(decoder.readNextFrame().timestamp, IsFraction(1, 25));
}

// ---- times -----------------------------------------------------------------------------------

class FrameTimesTest : public FrameReaderTest {
protected:
    /// Frames at 0, 1, 2, 10, 11 and 40 hundredths of a second.
    FrameReader& openUneven() {
        ClipPlan plan;
        plan.timeBase = {1, 100};
        plan.maxBFrames = 0; // else the file's durations are those of decoding
        plan.pts = {0, 1, 2, 10, 11, 40};
        return open(plan);
    }
};

TEST_F(FrameTimesTest, TellsWhenAFrameIsShownAndForHowLong) {
    FrameReader& frames = openUneven();
    EXPECT_THAT(frames.frameTime(3), IsFraction(1, 10));
    EXPECT_THAT(frames.frameDuration(2), IsFraction(2, 25));
    EXPECT_THAT(frames.frameDuration(4), IsFraction(29, 100));
    EXPECT_THAT(frames.frameDuration(5), IsFraction(29, 100)); // as the file says
    const auto picture = frames.readFrame(4);
    EXPECT_THAT(picture.time, IsFraction(11, 100));
    EXPECT_THAT(picture.duration, IsFraction(29, 100));
}

TEST_F(FrameTimesTest, NamesTheFrameOnScreen) {
    FrameReader& frames = openUneven();
    EXPECT_EQ(frames.frameNumberAt({0, 1}), 0);
    EXPECT_EQ(frames.frameNumberAt({1, 100}), 1);
    EXPECT_EQ(frames.frameNumberAt({99, 1000}), 2); // a millisecond before the next
    EXPECT_EQ(frames.frameNumberAt({1, 10}), 3);
    EXPECT_EQ(frames.frameNumberAt({-1, -10}), 3);
    EXPECT_EQ(frames.frameNumberAt({399999999, 1000000000}), 4);
    EXPECT_EQ(frames.frameNumberAt({68, 100}), 5); // 0.4 s + 0.29 s is its end
}

TEST_F(FrameTimesTest, ThrowsForATimeAtWhichNothingIsShown) {
    FrameReader& frames = openUneven();
    for (const Rational& time : {Rational(-1, 1000), Rational(69, 100), Rational(1000000, 1),
                                 Rational(1, INT64_MIN), Rational(1, 0)})
        EXPECT_THROW(static_cast<void>(frames.frameNumberAt(time)), tio::Exception)
            << time.toDouble();
}

TEST_F(FrameTimesTest, ReadsTheFrameOnScreen) {
    EXPECT_EQ(numberIn(openUneven().readFrameAt({3, 10})), 4);
}

TEST_F(FrameTimesTest, CountsFramesWhereTheContainerHasNoTimes) {
    ClipPlan plan;
    plan.format = "h264";
    FrameReader& frames = open(plan);
    EXPECT_THAT(frames.frameTime(0), IsFraction(0, 1));
    EXPECT_THAT(frames.frameTime(7), IsFraction(7, 25));
    EXPECT_EQ(frames.frameNumberAt({7, 25}), 7);
}

// FFmpeg takes a clock that begins just before it wraps for one that begins before zero.
TEST_F(FrameTimesTest, BeginsBeforeZeroWhereTheStreamDoes) {
    make("AcrossClockWrap");
    FrameReader& frames = openAgain();
    const auto start = test::everyPictureOf(clip).front().time();
    ASSERT_LT(start.numerator, 0);
    EXPECT_THAT(frames.frameTime(0), IsFraction(start.numerator, start.denominator));
    EXPECT_EQ(frames.frameNumberAt(Rational(start.numerator, start.denominator) + Rational(1, 20)),
              1);
}

TEST_F(FrameReaderTest, TellsKeyFrames) {
    FrameReader& frames = open({});
    std::vector<int64_t> keys;
    for (int64_t frame = 0; frame < frames.frameCount(); ++frame)
        if (frames.isKeyFrame(frame))
            keys.push_back(frame);
    EXPECT_THAT(keys, ElementsAre(0, 12, 24));
}

// ---- several frames
// ------------------------------------------------------------------------------

TEST_F(FrameReaderTest, HandsFramesOverInTheOrderAskedFor) {
    open({});
    EXPECT_THAT(numbersOf({20, 3, 3, 24, 0, 20, 7}), ElementsAre(20, 3, 3, 24, 0, 20, 7));
}

TEST_F(FrameReaderTest, HoldsOnePictureWhateverTheBudget) {
    FrameReaderOptions options;
    options.byteBudget = 0;
    open({}, options);
    EXPECT_THAT(numbersOf({20, 3, 4, 24, 0}), ElementsAre(20, 3, 4, 24, 0));
}

class FrameRange : public FrameReaderTest {
protected:
    std::vector<int64_t> range(int64_t first, int64_t end, int64_t step) {
        std::vector<int64_t> numbers;
        reader->readFrames(first, end, step, [&](const FrameReader::Picture& picture) {
            EXPECT_EQ(numberIn(picture), picture.number);
            numbers.push_back(picture.number);
            return true;
        });
        return numbers;
    }
};

TEST_F(FrameRange, GoesUpAndDownInSteps) {
    open({});
    EXPECT_THAT(range(3, 20, 6), ElementsAre(3, 9, 15));
    EXPECT_THAT(range(24, 2, -10), ElementsAre(24, 14, 4));
    EXPECT_THAT(range(5, 5, 1), ElementsAre());
}

TEST_F(FrameRange, RefusesAStepOfZero) {
    open({});
    EXPECT_THROW(range(0, 5, 0), tio::Exception);
}

TEST_F(FrameRange, RefusesFramesBehindTheEndBeforeItGivesAny) {
    open({});
    int given = 0;
    EXPECT_THROW(reader->readFrames(20, INT64_MAX, 1, [&](const auto&) { return ++given > 0; }),
                 tio::Exception);
    EXPECT_EQ(given, 0);
}

TEST_F(FrameReaderTest, StopsWhenTheCallbackWantsNoMore) {
    open({});
    int given = 0;
    reader->readFrames({1, 2, 3, 4}, [&](const auto&) { return ++given < 2; });
    EXPECT_EQ(given, 2);
}

// ---- how sure it is
// ------------------------------------------------------------------------------

TEST_F(FrameReaderTest, TellsThatAKeyFrameLedToTheFrame) {
    EXPECT_EQ(open({}).readFrame(20).reached, Reached::Exact);
}

class LyingKeysTest : public FrameReaderTest {
protected:
    void SetUp() override { make("LyingKeys"); }
};

TEST_F(LyingKeysTest, AreFoundOutByChecksums) {
    FrameReaderOptions options;
    options.checksums = true;
    FrameReader& frames = openAgain(options);
    const auto picture = frames.readFrame(30);
    EXPECT_EQ(picture.reached, Reached::Proven);
    EXPECT_EQ(numberIn(picture), 30);
}

TEST_F(LyingKeysTest, AreRememberedAndAvoided) {
    FrameReaderOptions options;
    options.checksums = true;
    FrameReader& frames = openAgain(options);
    static_cast<void>(frames.readFrame(23));
    options.index = frames.index();
    FrameReader& again = openAgain(options);
    static_cast<void>(again.readFrame(23));
    EXPECT_EQ(again.counters().seeks, 1); // to the only key packet of the group that is one
}

TEST_F(FrameReaderTest, ReadsADamagedStreamWithOneThread) {
    make("DamagedInTheMiddle");
    FrameReader& frames = openAgain();
    const auto picture = frames.readFrame(18);
    EXPECT_TRUE(frames.index().isDamaged());
    EXPECT_EQ(picture.reached, Reached::Proven);
}

TEST_F(FrameReaderTest, RefusesTheIndexOfAnotherKindOfStream) {
    FrameReaderOptions options;
    options.index = open({}).index();
    ClipPlan plan;
    plan.encoder = "mpeg4";
    EXPECT_THAT(test::thrownText<IndexMismatch>([&] { open(plan, options); }),
                HasSubstr("The index is not that of"));
}

TEST_F(FrameReaderTest, CanBeMoved) {
    FrameReader moved = std::move(open({}));
    EXPECT_EQ(numberIn(moved.readFrame(9)), 9);
}

} // namespace
} // namespace tio::ffmpeg
