#include "FrameReaderFixture.h"
#include "support/Expectations.h"
#include "support/Interception.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/Source.h>

#include <array>
#include <climits>
#include <cstdint>
#include <gmock/gmock.h>
#include <memory>
#include <utility>
#include <vector>

namespace tio {
namespace {

using ffmpeg::FrameReader;
using ffmpeg::FrameReaderOptions;
using ffmpeg::PictureFormat;
using ffmpeg::Source;

/// What is asked of a reader that cannot be given.
class FrameReaderRefusalsTest : public test::FrameReaderTest {
protected:
    void SetUp() override { test::makeClip(clip, {}); }
};

TEST_F(FrameReaderRefusalsTest, AFrameTypeIsThatOfThePixelFormatWhateverFormatTheOptionsName) {
    FrameReaderOptions options;
    options.format = PictureFormat::Nv12;
    FrameReader rgb(std::make_shared<ffmpeg::InputFormatContext>(clip), ffmpeg::PixelFormat::RGB,
                    options);
    const auto frame = rgb.readFrame(0).frame;
    EXPECT_NE(dynamic_cast<Frame<PixelFormat::RGB>*>(frame.get()), nullptr);
}

TEST_F(FrameReaderRefusalsTest, MemoryWithoutAPlaneIsRefusedInEveryColours) {
    for (const auto colours : {ffmpeg::Colours::Tagged, ffmpeg::Colours::Bt601}) {
        FrameReaderOptions options;
        options.colours = colours;
        FrameReader tried(Source(clip), options);
        ffmpeg::Image image(PictureFormat::Rgb8, tried.height(), tried.width());
        ffmpeg::ImageView view = image.view();
        view.planes[0] = nullptr;
        EXPECT_THROW(tried.readFrameInto(3, view), Exception);
        view = image.view();
        view.strides[0] = 10;
        EXPECT_THROW(tried.readFrameInto(3, view), Exception);
        EXPECT_NO_THROW(tried.readFrameInto(3, image.view()));
    }
}

TEST_F(FrameReaderRefusalsTest, AStepBeyondAllNumbersGivesTheFirstFrameAlone) {
    FrameReader tried{Source(clip)};
    std::vector<int64_t> numbers;
    tried.readFrames(1, 5, INT64_MAX, [&](const FrameReader::Picture& picture) {
        numbers.push_back(picture.number);
        return true;
    });
    EXPECT_EQ(numbers, std::vector<int64_t>{1});
}

TEST_F(FrameReaderRefusalsTest, ThreadsThatNoDecoderCanHave) {
    for (const int threads : {INT_MIN, -1, 100000}) {
        FrameReaderOptions options;
        options.threads = threads;
        EXPECT_THROW(FrameReader(Source(clip), options), Exception) << threads;
    }
}

TEST_F(FrameReaderRefusalsTest, OneSideOfASizeAlone) {
    FrameReaderOptions options;
    options.width = 48;
    EXPECT_THAT(test::thrownText<Exception>([&] { FrameReader(Source(clip), options); }),
                testing::AllOf(testing::HasSubstr("both a height and a width"),
                               testing::HasSubstr("48 x 0")));
    std::swap(options.width, options.height);
    EXPECT_THROW(FrameReader(Source(clip), options), Exception);
}

TEST_F(FrameReaderRefusalsTest, ReadingWithoutAFunctionThatTakesTheFrames) {
    FrameReader tried{Source(clip)};
    EXPECT_THROW(tried.readFrames({1}, {}), Exception);
    EXPECT_THROW(tried.readFrames(0, 5, 1, {}), Exception);
    EXPECT_EQ(tried.counters().packetsDecoded, 0);
}

// Of a tag that cannot be read, however many pictures there are.
TEST_F(FrameReaderRefusalsTest, AnUnreadableTurnIsToldOnce) {
    test::ClipPlan plan;
    plan.format = "matroska";
    plan.metadata = {{"rotate", "33"}};
    test::makeClip(clip, plan);
    for (const auto colours : {ffmpeg::Colours::Tagged, ffmpeg::Colours::Bt601}) {
        log.clear();
        FrameReaderOptions options;
        options.colours = colours;
        FrameReader tried(Source(clip), options);
        for (const int64_t frame : {3, 20, 1, 12})
            static_cast<void>(tried.readFrame(frame));
        EXPECT_EQ(log.count("rotation metadata"), 1u);
    }
}

TEST_F(FrameReaderRefusalsTest, NoInput) {
    const std::shared_ptr<ffmpeg::InputFormatContext> none;
    EXPECT_THROW(FrameReader(none, ffmpeg::PixelFormat::RGB), Exception);
    EXPECT_THROW(static_cast<void>(ffmpeg::FrameIndex::build(none)), Exception);
    EXPECT_THROW(static_cast<void>(ffmpeg::FrameIndex::load("index", none)), Exception);
}

} // namespace
} // namespace tio
