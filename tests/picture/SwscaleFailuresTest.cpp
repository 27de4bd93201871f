#include "SwscalePictures.h"
#include "picture/swscale.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/SourceFrames.h"

#include <TARN/core/Exception.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio {
namespace {

using test::convert;
using test::FramePointer;
using test::IsLogLine;
using test::makeNoise;
using test::Target;
using test::thrownText;
using ::testing::Contains;
using ::testing::ElementsAre;

class SwscaleFailures : public ::testing::Test {
protected:
    // Everything that the library itself says about a failed check is of level 4.
    void expectRootLines(const std::vector<std::string>& texts) {
        EXPECT_EQ(log.linesAt(4), texts);
        for (const std::string& text : texts)
            EXPECT_THAT(log.lines(), Contains(IsLogLine("root", 4, text)));
    }

    const std::vector<std::string> noContext = {
        R"(Could not get swscale context @ ..\src\TARN\videoio\swscale:32)",
        "Assertion failed: m_sws_context"};
    const std::string noFormatForDefault =
        "Default pixel format conversion should not be done with ffPixelFormat()";

    test::LogCapture log;
};

TEST_F(SwscaleFailures, ASourceWithoutPixelFormatIsRefused) {
    EXPECT_EQ(thrownText<Exception>([] {
                  SWScale({48, 64}, AV_PIX_FMT_NONE, AV_PIX_FMT_RGB24);
              }),
              "Could not get swscale context");
    expectRootLines(noContext);
}

TEST_F(SwscaleFailures, ATargetWithoutPixelFormatIsRefused) {
    EXPECT_EQ(thrownText<Exception>([] {
                  SWScale({48, 64}, AV_PIX_FMT_RGB24, AV_PIX_FMT_NONE);
              }),
              "Could not get swscale context");
    expectRootLines(noContext);
}

TEST_F(SwscaleFailures, APictureInTheMemoryOfAGraphicsCardIsRefused) {
    EXPECT_EQ(thrownText<Exception>([] {
                  SWScale({48, 64}, AV_PIX_FMT_VAAPI, AV_PIX_FMT_RGB24);
              }),
              "Could not get swscale context");
    expectRootLines(noContext);
}

TEST_F(SwscaleFailures, APictureWithoutRowsOrColumnsIsRefused) {
    for (const Vec<int, 2> size : {Vec<int, 2>(0, 64), Vec<int, 2>(48, 0), Vec<int, 2>(-1, 64)}) {
        log.clear();
        EXPECT_EQ(
            thrownText<Exception>([&] { SWScale(size, AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGB24); }),
            "Could not get swscale context");
        expectRootLines(noContext);
    }
}

TEST_F(SwscaleFailures, DefaultNamesNoPixelFormatOfFfmpeg) {
    EXPECT_EQ(thrownText<Exception>([] { (void)ffPixelFormat(Target::Default); }),
              noFormatForDefault);
    expectRootLines({noFormatForDefault + R"( @ ..\src\TARN\videoio\swscale:40)"});
}

TEST_F(SwscaleFailures, AValueThatIsNoPixelFormatIsRefused) {
    for (const int value : {3, -1, 1000}) {
        log.clear();
        EXPECT_EQ(thrownText<Exception>([&] { (void)ffPixelFormat(static_cast<Target>(value)); }),
                  "Invalid pixel format");
        expectRootLines({R"(Invalid pixel format @ ..\src\TARN\videoio\swscale:46)"});
    }
}

TEST_F(SwscaleFailures, ADecoderForDefaultFailsWhenItIsMade) {
    EXPECT_EQ(thrownText<Exception>([] {
                  SWScaleDecoder({48, 64}, AV_PIX_FMT_YUV420P, Target::Default);
              }),
              noFormatForDefault);
    expectRootLines({noFormatForDefault + R"( @ ..\src\TARN\videoio\swscale:40)"});
}

TEST_F(SwscaleFailures, ADecoderLooksAtItsTargetBeforeItAsksForAContext) {
    EXPECT_EQ(thrownText<Exception>([] {
                  SWScaleDecoder({48, 64}, AV_PIX_FMT_NONE, static_cast<Target>(7));
              }),
              "Invalid pixel format");
    expectRootLines({R"(Invalid pixel format @ ..\src\TARN\videoio\swscale:46)"});
}

TEST_F(SwscaleFailures, AnEncoderForNoPixelFormatIsRefused) {
    const test::CodecPointer codec(avcodec_alloc_context3(nullptr));
    EXPECT_EQ(thrownText<Exception>([&] {
                  SWScaleEncoder({48, 64}, codec.get());
              }),
              "Could not get swscale context");
    expectRootLines(noContext);
}

// What swscale answers says nothing that its caller could act on.
TEST_F(SwscaleFailures, TheResultOfAConversionIsNotChecked) {
    const test::Interception intercepted;
    intercepted->sws_scale.instead = [](SwsContext*) { return AVERROR(EINVAL); };
    const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 16, 16);
    EXPECT_NE(convert(*frame, Target::RGB), nullptr);
    EXPECT_THAT(log.linesAt(5), ElementsAre());
}

} // namespace
} // namespace tio
