#include "picture/filter.h"

#include "support/BareObjects.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/SourceFrames.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace tio {
namespace {

using test::BareContext;
using test::FramePointer;
using test::IsLogLine;
using test::makeNoise;
using test::planeBytes;
using test::PlaneSize;
using test::planeSize;
using test::thrownText;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// One call of avfilter_graph_create_filter.
struct CreatedFilter {
    std::string filter;
    std::string name;
    std::string arguments; ///< "(none)" for a null pointer
};

class FilterTest : public ::testing::Test {
protected:
    FilterTest() {
        intercepted->avfilter_graph_create_filter.instead =
            [this](const char* filter, const char* name, const char* arguments) {
                created.push_back({filter != nullptr ? filter : "(unknown)", name,
                                   arguments != nullptr ? arguments : "(none)"});
                return createAnswer;
            };
        intercepted->avfilter_graph_parse_ptr.instead = [this](const char* chain) {
            chains.emplace_back(chain);
            return parseAnswer;
        };
        describe(AV_PIX_FMT_YUV420P, 64, 48);
    }

    void describe(AVPixelFormat format, int width, int height) {
        AVCodecParameters& parameters = *context.stream().codecpar;
        parameters.format = format;
        parameters.width = width;
        parameters.height = height;
        context.stream().time_base = {1, 25};
    }

    std::shared_ptr<FfmpegVideoFilter> rotation(int quarterTurns) {
        return makeRotationFilter(&context.stream(), quarterTurns);
    }

    // Runs `action`, which must throw FFmpeg's text for `code` with the place of the check.
    template <typename Action>
    void expectFailure(int code, int number, Action action) {
        const std::string expected =
            ffmpegText(code) + R"( @ ..\src\TARN\videoio\filter:)" + std::to_string(number);
        log.clear();
        EXPECT_EQ(thrownText<ffmpeg::Exception>(action), expected);
        EXPECT_THAT(log.linesAt(5), ElementsAre(expected));
        EXPECT_THAT(log.lines(), Contains(IsLogLine("root", 5, expected)));
    }

    static std::string ffmpegText(int code) {
        char text[1024] = {};
        av_strerror(code, text, sizeof text);
        return text;
    }

    BareContext context;
    test::Interception intercepted;
    test::LogCapture log;
    std::vector<CreatedFilter> created;
    std::vector<std::string> chains;
    int createAnswer = 0; // negative: what FFmpeg is made to answer
    int parseAnswer = 0;
};

// The graph

TEST_F(FilterTest, TheSourceIsToldOfTheStreamInTheOrderOfTheNames) {
    describe(AV_PIX_FMT_YUV420P, 1920, 1080);
    context.stream().time_base = {1, 90000};
    context.stream().codecpar->sample_aspect_ratio = {1, 1};
    const auto filter = rotation(1);
    ASSERT_GE(created.size(), 1u);
    EXPECT_EQ(created[0].filter, "buffer");
    EXPECT_EQ(created[0].name, "in");
    EXPECT_EQ(created[0].arguments,
              "pix_fmt=0:pixel_aspect=1/1:time_base=1/90000:video_size=1920x1080");
}

TEST_F(FilterTest, AnUnknownPixelAspectIsPassedAsItIs) {
    describe(AV_PIX_FMT_YUV444P, 6, 4);
    context.stream().codecpar->sample_aspect_ratio = {0, 1};
    const auto filter = rotation(3);
    ASSERT_GE(created.size(), 1u);
    EXPECT_EQ(created[0].arguments, "pix_fmt=5:pixel_aspect=0/1:time_base=1/25:video_size=6x4");
}

TEST_F(FilterTest, FractionsArePassedUnreduced) {
    context.stream().codecpar->sample_aspect_ratio = {64, 48};
    context.stream().time_base = {1001, 30000};
    const auto filter = rotation(1);
    ASSERT_GE(created.size(), 1u);
    EXPECT_EQ(created[0].arguments,
              "pix_fmt=0:pixel_aspect=64/48:time_base=1001/30000:video_size=64x48");
}

TEST_F(FilterTest, TheSinkHasNoArguments) {
    const auto filter = rotation(2);
    ASSERT_GE(created.size(), 2u);
    EXPECT_EQ(created[1].filter, "buffersink");
    EXPECT_EQ(created[1].name, "out");
    EXPECT_EQ(created[1].arguments, "(none)");
}

TEST_F(FilterTest, EveryQuarterTurnHasItsChain) {
    for (const int quarterTurns : {1, 2, 3})
        (void)rotation(quarterTurns);
    EXPECT_THAT(chains, ElementsAre("transpose=dir=1", "vflip,hflip", "transpose=dir=2"));
}

TEST_F(FilterTest, AnyOtherCodeTurnsLikeTheFirst) {
    for (const int code : {0, 4, -1})
        (void)rotation(code);
    EXPECT_THAT(chains, ElementsAre("transpose=dir=1", "transpose=dir=1", "transpose=dir=1"));
}

TEST_F(FilterTest, ArgumentsAreJoinedInTheOrderOfTheirNames) {
    const test::GraphPointer graph(avfilter_graph_alloc());
    const std::map<std::string, std::string> arguments = {{"size", "8x6"}, {"color", "red"}};
    const AVFilterContext* filter = createFilter("color", "red", arguments, graph.get());
    EXPECT_STREQ(filter->name, "red");
    ASSERT_GE(created.size(), 1u);
    EXPECT_EQ(created[0].arguments, "color=red:size=8x6");
}

// Failures

TEST_F(FilterTest, AnUnknownFilterIsRefused) {
    const test::GraphPointer graph(avfilter_graph_alloc());
    AVFilterContext* unused = nullptr;
    const int code =
        avfilter_graph_create_filter(&unused, nullptr, "in", nullptr, nullptr, graph.get());
    ASSERT_LT(code, 0);
    expectFailure(code, 62, [&] { (void)createFilter("nosuchfilter", "in", {}, graph.get()); });
}

TEST_F(FilterTest, AStreamWithoutPixelFormatIsRefused) {
    describe(AV_PIX_FMT_NONE, 64, 48);
    expectFailure(AVERROR(EINVAL), 62, [this] { (void)rotation(1); });
}

TEST_F(FilterTest, AStreamWithoutSizeIsRefused) {
    describe(AV_PIX_FMT_YUV420P, 0, 0);
    expectFailure(AVERROR(EINVAL), 62, [this] { (void)rotation(1); });
}

TEST_F(FilterTest, AFilterThatCannotBeMadeFails) {
    createAnswer = AVERROR(ENOMEM);
    expectFailure(AVERROR(ENOMEM), 62, [this] { (void)rotation(1); });
}

TEST_F(FilterTest, AnEndThatCannotBeNamedFails) {
    intercepted->av_strdup.instead = [](const char*) -> char* { return nullptr; };
    EXPECT_THROW((void)rotation(1), std::bad_alloc);
}

TEST_F(FilterTest, AChainWithAnUnknownFilterFails) {
    // Which error it is differs between FFmpeg releases.
    const test::GraphPointer graph(avfilter_graph_alloc());
    const int code =
        avfilter_graph_parse_ptr(graph.get(), "nosuchfilter", nullptr, nullptr, nullptr);
    ASSERT_LT(code, 0);
    expectFailure(code, 126, [this] { FfmpegVideoFilter(&context.stream(), "nosuchfilter"); });
}

TEST_F(FilterTest, AChainThatCannotBeParsedFails) {
    parseAnswer = AVERROR_INVALIDDATA;
    expectFailure(AVERROR_INVALIDDATA, 126, [this] { (void)rotation(1); });
}

TEST_F(FilterTest, AChainThatDoesNotSuitThePictureFails) {
    expectFailure(AVERROR(EINVAL), 129,
                  [this] { FfmpegVideoFilter(&context.stream(), "crop=1000:1000"); });
}

TEST_F(FilterTest, AGraphThatCannotBeConfiguredFails) {
    intercepted->avfilter_graph_config.instead = [](AVFilterGraph*) { return AVERROR(ENOSYS); };
    expectFailure(AVERROR(ENOSYS), 129, [this] { (void)rotation(1); });
}

TEST_F(FilterTest, AFrameThatIsNotTakenFails) {
    const auto filter = rotation(1);
    const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 64, 48);
    intercepted->av_buffersrc_add_frame_flags.instead = [](AVFilterContext*, AVFrame*, int) {
        return AVERROR(EINVAL);
    };
    expectFailure(AVERROR(EINVAL), 152, [&] { filter->filterFrame(frame.get()); });
}

TEST_F(FilterTest, AFrameThatDoesNotComeOutFailsEvenIfItMightComeLater) {
    const auto filter = rotation(1);
    for (const int code : {AVERROR(EAGAIN), AVERROR_EOF, AVERROR(EINVAL)}) {
        const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 64, 48);
        intercepted->av_buffersink_get_frame.instead = [code](AVFilterContext*, AVFrame*) {
            return code;
        };
        expectFailure(code, 159, [&] { filter->filterFrame(frame.get()); });
    }
}

TEST_F(FilterTest, ErrorsOfTheFileSystemHaveNoPlaceAndAreNotLogged) {
    createAnswer = AVERROR(EPERM);
    EXPECT_EQ(thrownText<ffmpeg::Exception>([this] { (void)rotation(1); }),
              ffmpegText(AVERROR(EPERM)));
    EXPECT_THAT(log.linesAt(5), IsEmpty());
}

// Frames

TEST_F(FilterTest, TheFilteredPictureReplacesWhatTheFrameHeld) {
    const auto filter = rotation(1);
    const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 64, 48);
    const uint8_t* const before = frame->data[0];
    frame->pts = 77;
    filter->filterFrame(frame.get());
    EXPECT_NE(frame->data[0], before);
    EXPECT_EQ(frame->width, 48);
    EXPECT_EQ(frame->height, 64);
    EXPECT_EQ(frame->pts, 77);
}

TEST_F(FilterTest, TheSourceTakesAReferenceOfItsOwn) {
    const auto filter = rotation(1);
    const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 64, 48);
    const AVFrame* taken = nullptr;
    int flags = 0;
    intercepted->av_buffersrc_add_frame_flags.instead = [&](AVFilterContext*, AVFrame* given,
                                                            int with) {
        taken = given;
        flags = with;
        return AVERROR(EINVAL);
    };
    EXPECT_THROW(filter->filterFrame(frame.get()), ffmpeg::Exception);
    EXPECT_EQ(taken, frame.get());
    EXPECT_EQ(flags, AV_BUFFERSRC_FLAG_KEEP_REF);
}

TEST_F(FilterTest, PicturesThatOthersHoldStayAsTheyAre) {
    const auto filter = rotation(2);
    const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 64, 48);
    const FramePointer held(av_frame_clone(frame.get()));
    const std::vector<uint8_t> before = planeBytes(*held, 0);
    filter->filterFrame(frame.get());
    EXPECT_EQ(planeBytes(*held, 0), before);
}

TEST_F(FilterTest, ThePictureThatWentInIsLetGo) {
    auto filter = rotation(1);
    const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 64, 48);
    const FramePointer held(av_frame_clone(frame.get()));
    filter->filterFrame(frame.get());
    filter.reset();
    EXPECT_EQ(av_buffer_get_ref_count(held->buf[0]), 1);
}

TEST_F(FilterTest, AsManyFramesComeOutAsGoIn) {
    const auto filter = rotation(3);
    for (int n = 0; n < 5; ++n) {
        const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 64, 48);
        frame->pts = n;
        filter->filterFrame(frame.get());
        EXPECT_EQ(frame->pts, n);
    }
    EXPECT_EQ(intercepted->av_buffersink_get_frame.count, 5);
}

TEST_F(FilterTest, AFrameOfAnotherSizeOrFormatIsRefusedBeforeItIsRead) {
    const std::string message = "Picture size or format changed in a rotated stream";
    const std::tuple<AVPixelFormat, int, int> others[] = {{AV_PIX_FMT_YUV420P, 32, 24},
                                                          {AV_PIX_FMT_YUV420P, 32, 48},
                                                          {AV_PIX_FMT_YUV420P, 64, 24},
                                                          {AV_PIX_FMT_YUV420P, 640, 480},
                                                          {AV_PIX_FMT_GRAY8, 64, 48}};
    for (const auto& [format, width, height] : others) {
        const auto filter = rotation(1);
        const FramePointer frame = makeNoise(format, width, height);
        log.clear();
        EXPECT_EQ(thrownText<Exception>([&] { filter->filterFrame(frame.get()); }), message);
        EXPECT_THAT(log.linesAt(4), ElementsAre(message + R"( @ ..\src\TARN\videoio\filter:146)",
                                                "Assertion failed: fits"));
    }
    EXPECT_EQ(intercepted->av_buffersrc_add_frame_flags.count, 0);
}

TEST_F(FilterTest, AfterAFrameThatWasRefusedTheNextIsTurned) {
    const auto filter = rotation(1);
    const FramePointer other = makeNoise(AV_PIX_FMT_YUV420P, 32, 24);
    EXPECT_THROW(filter->filterFrame(other.get()), Exception);
    const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 64, 48);
    filter->filterFrame(frame.get());
    EXPECT_EQ(frame->width, 48);
}

// Pixels

TEST_F(FilterTest, TurnsSixPixelsAsAHandWould) {
    describe(AV_PIX_FMT_GRAY8, 3, 2);
    const std::map<int, std::vector<uint8_t>> expected = {
        {1, {4, 1, 5, 2, 6, 3}}, {2, {6, 5, 4, 3, 2, 1}}, {3, {3, 6, 2, 5, 1, 4}}};
    for (const auto& [quarterTurns, pixels] : expected) {
        const FramePointer frame = test::makeFrame(AV_PIX_FMT_GRAY8, 3, 2);
        for (int i = 0; i < 6; ++i)
            frame->data[0][i / 3 * frame->linesize[0] + i % 3] = static_cast<uint8_t>(i + 1);
        rotation(quarterTurns)->filterFrame(frame.get());
        EXPECT_EQ(planeBytes(*frame, 0), pixels) << quarterTurns << " quarter turns";
    }
}

/// Samples turned clockwise by hand, a quarter at a time.
std::vector<uint8_t> turned(std::vector<uint8_t> samples, PlaneSize size, int quarterTurns) {
    for (int turn = 0; turn < quarterTurns; ++turn) {
        std::vector<uint8_t> next;
        for (int column = 0; column < size.width; ++column) {
            for (int row = size.height - 1; row >= 0; --row)
                next.push_back(*(samples.begin() + row * size.width + column));
        }
        samples = std::move(next);
        std::swap(size.width, size.height);
    }
    return samples;
}

class RotationOfPictures
    : public FilterTest,
      public ::testing::WithParamInterface<std::tuple<const char*, std::tuple<int, int>, int>> {};

TEST_P(RotationOfPictures, TurnsEveryPlanePixelForPixel) {
    const AVPixelFormat format = av_get_pix_fmt(std::get<0>(GetParam()));
    const auto [width, height] = std::get<1>(GetParam());
    const int quarterTurns = std::get<2>(GetParam());
    describe(format, width, height);
    const FramePointer original = makeNoise(format, width, height);
    const FramePointer frame(av_frame_clone(original.get()));
    rotation(quarterTurns)->filterFrame(frame.get());

    const bool sideways = quarterTurns != 2;
    EXPECT_EQ(frame->width, sideways ? height : width);
    EXPECT_EQ(frame->height, sideways ? width : height);
    ASSERT_EQ(frame->format, format);
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane)
        EXPECT_EQ(planeBytes(*frame, plane),
                  turned(planeBytes(*original, plane), planeSize(*original, plane), quarterTurns))
            << "plane " << plane;
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, RotationOfPictures,
    ::testing::Combine(::testing::Values("yuv444p", "yuv420p", "yuvj420p", "gray"),
                       ::testing::Values(std::tuple(6, 4), std::tuple(4, 6), std::tuple(5, 3),
                                         std::tuple(3, 5), std::tuple(1, 7), std::tuple(33, 17),
                                         std::tuple(854, 480)),
                       ::testing::Values(1, 2, 3)));

} // namespace
} // namespace tio
