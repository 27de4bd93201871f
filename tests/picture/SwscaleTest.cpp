#include "picture/swscale.h"

#include "SwscalePictures.h"
#include "support/Interception.h"
#include "support/ReferenceConversion.h"
#include "support/SourceFrames.h"

#include <TARN/core/MatAlloc.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {
int freshByte = -1; // negative: memory is handed out as it is
}

// The operator that the memory of matrices comes from in the end, so that a test can choose what a
// picture holds before it is written.
void* operator new(std::size_t size, std::align_val_t alignment) {
    void* block = nullptr;
    if (posix_memalign(&block, static_cast<std::size_t>(alignment), size) != 0)
        throw std::bad_alloc();
    if (freshByte >= 0)
        std::memset(block, freshByte, size);
    return block;
}

void operator delete(void* block, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    std::free(block);
}

namespace tio {
namespace {

using test::bytesOf;
using test::convert;
using test::FramePointer;
using test::makeNoise;
using test::makePlain;
using test::Nv12Frame;
using test::nv12Of;
using test::Plane;
using test::planesOf;
using test::RgbFrame;
using test::rgbOf;
using test::Target;
using ::testing::Each;
using ::testing::ElementsAre;

/// While it lives, every matrix starts full of one byte instead of whatever the memory held before.
/// What a converter leaves unwritten, or writes beyond the end, can then be seen. One at a time.
class FreshMemory {
public:
    explicit FreshMemory(uint8_t value) {
        MatAlloc::getGlobalMatAlloc()->trim(); // recycled blocks would come as they are
        freshByte = value;
    }
    ~FreshMemory() { freshByte = -1; }
    FreshMemory(const FreshMemory&) = delete;
    FreshMemory& operator=(const FreshMemory&) = delete;
};

// Pictures

TEST(FfPixelFormat, NamesFfmpegsFormatForEachOfOurs) {
    EXPECT_EQ(ffPixelFormat(Target::RGB), AV_PIX_FMT_RGB24);
    EXPECT_EQ(ffPixelFormat(Target::NV12), AV_PIX_FMT_NV12);
}

TEST(SWScaleDecoder, TakesTheSourceFormatFromTheCodec) {
    const test::CodecPointer codec(avcodec_alloc_context3(nullptr));
    codec->pix_fmt = AV_PIX_FMT_YUV444P;
    const SWScaleDecoder decoder({3, 5}, codec.get(), Target::RGB);
    EXPECT_TRUE(decoder.fits(*test::makeFrame(AV_PIX_FMT_YUV444P, 5, 3)));
}

TEST(SWScaleDecoder, FitsOnlyFramesOfItsSizeAndFormat) {
    const SWScaleDecoder decoder({8, 16}, AV_PIX_FMT_YUV420P, Target::RGB);
    EXPECT_TRUE(decoder.fits(*test::makeFrame(AV_PIX_FMT_YUV420P, 16, 8)));
    EXPECT_FALSE(decoder.fits(*test::makeFrame(AV_PIX_FMT_YUV420P, 8, 16)));
    EXPECT_FALSE(decoder.fits(*test::makeFrame(AV_PIX_FMT_YUV420P, 16, 7)));
    EXPECT_FALSE(decoder.fits(*test::makeFrame(AV_PIX_FMT_YUV420P, 15, 8)));
    EXPECT_FALSE(decoder.fits(*test::makeFrame(AV_PIX_FMT_YUV422P, 16, 8)));
}

TEST(SWScaleDecoder, RgbIsOnePlaneOfThreeBytesAPixelInRowsWithoutGaps) {
    const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 17, 6);
    const auto picture = convert(*frame, Target::RGB);
    const RgbFrame& rgb = rgbOf(picture);
    EXPECT_EQ(rgb.size, (Vec<int, 2>(6, 17)));
    EXPECT_EQ(rgb.plane.size, (Vec<int, 2>(6, 51)));
    EXPECT_EQ(rgb.plane.step, (Vec<int, 2>(51, 1)));
}

TEST(SWScaleDecoder, RgbHasRedFirst) {
    const FramePointer frame = test::makeFrame(AV_PIX_FMT_BGR24, 1, 1);
    frame->data[0][0] = 30; // blue
    frame->data[0][1] = 20; // green
    frame->data[0][2] = 10; // red
    EXPECT_THAT(bytesOf(rgbOf(convert(*frame, Target::RGB)).plane), ElementsAre(10, 20, 30));
}

TEST(SWScaleDecoder, LimitedRangeBlackAndWhiteBecomeTheEndsOfTheScale) {
    const FramePointer black = makePlain(AV_PIX_FMT_YUV420P, 32, 16, {16, 128, 128});
    const FramePointer white = makePlain(AV_PIX_FMT_YUV420P, 32, 16, {235, 128, 128});
    EXPECT_THAT(bytesOf(rgbOf(convert(*black, Target::RGB)).plane), Each(0));
    EXPECT_THAT(bytesOf(rgbOf(convert(*white, Target::RGB)).plane), Each(255));
}

TEST(SWScaleDecoder, FullRangeBlackAndWhiteBecomeTheEndsOfTheScale) {
    const FramePointer black = makePlain(AV_PIX_FMT_YUVJ420P, 32, 16, {0, 128, 128});
    const FramePointer white = makePlain(AV_PIX_FMT_YUVJ420P, 32, 16, {255, 128, 128});
    EXPECT_THAT(bytesOf(rgbOf(convert(*black, Target::RGB)).plane), Each(0));
    EXPECT_THAT(bytesOf(rgbOf(convert(*white, Target::RGB)).plane), Each(255));
}

TEST(SWScaleDecoder, Nv12ChromaOfAnOddWidthIsOneByteWider) {
    const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 5, 4);
    const auto picture = convert(*frame, Target::NV12);
    const Nv12Frame& nv12 = nv12Of(picture);
    EXPECT_EQ(nv12.size, (Vec<int, 2>(4, 5)));
    EXPECT_EQ(nv12.planes[0].size, (Vec<int, 2>(4, 5)));
    EXPECT_EQ(nv12.planes[0].step, (Vec<int, 2>(5, 1)));
    EXPECT_EQ(nv12.planes[1].size, (Vec<int, 2>(4, 6)));
    EXPECT_EQ(nv12.planes[1].step, (Vec<int, 2>(6, 1)));
}

TEST(SWScaleDecoder, Nv12ChromaHasAsManyRowsAsLuma) {
    for (const int height : {1, 2, 5, 48}) {
        const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 6, height);
        const auto picture = convert(*frame, Target::NV12);
        EXPECT_EQ(nv12Of(picture).planes[1].size, (Vec<int, 2>(height, 6)));
    }
}

TEST(SWScaleDecoder, Nv12ChromaBelowThePictureIsLeftAsAllocated) {
    for (const AVPixelFormat source : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV444P, AV_PIX_FMT_NV12}) {
        const FramePointer frame = makeNoise(source, 22, 9);
        const FreshMemory memory(0xA5);
        std::vector<uint8_t> rest = bytesOf(nv12Of(convert(*frame, Target::NV12)).planes[1]);
        rest.erase(rest.begin(), rest.begin() + std::ptrdiff_t{5} * 22);
        EXPECT_THAT(rest, Each(0xA5)) << av_get_pix_fmt_name(source);
    }
}

TEST(SWScaleDecoder, PicturesStayAsTheyAreWhenTheConverterGoesOnAndAway) {
    const FramePointer first = makePlain(AV_PIX_FMT_YUV420P, 32, 16, {16, 128, 128});
    const FramePointer second = makePlain(AV_PIX_FMT_YUV420P, 32, 16, {235, 128, 128});
    auto decoder =
        std::make_unique<SWScaleDecoder>(Vec<int, 2>(16, 32), AV_PIX_FMT_YUV420P, Target::RGB);
    const auto black = decoder->convertFrame(first.get());
    const auto white = decoder->convertFrame(second.get());
    decoder.reset();
    EXPECT_THAT(bytesOf(rgbOf(black).plane), Each(0));
    EXPECT_THAT(bytesOf(rgbOf(white).plane), Each(255));
}

TEST(SWScaleDecoder, ConvertsAPictureInOnePass) {
    const test::Interception intercepted;
    const FramePointer frame = makeNoise(AV_PIX_FMT_YUV420P, 854, 480);
    (void)convert(*frame, Target::RGB);
    EXPECT_EQ(intercepted->sws_scale.count, 1);
}

// Such pictures have negative distances between rows.
TEST(SWScaleDecoder, CopiesPicturesThatAreStoredFromTheBottomUp) {
    const FramePointer frame = makePlain(AV_PIX_FMT_NV12, 2, 2, {10});
    frame->data[0][frame->linesize[0]] = 20;
    frame->data[0][frame->linesize[0] + 1] = 20;
    frame->data[0] += frame->linesize[0];
    frame->linesize[0] = -frame->linesize[0];
    EXPECT_THAT(bytesOf(nv12Of(convert(*frame, Target::NV12)).planes[0]),
                ElementsAre(20, 20, 10, 10));
}

// Every byte of every size

/// How many bytes a plane had while it was written: rows of RGB that swscale would not fill, or
/// would run past, are written in blocks of 16 pixels and closed up afterwards.
std::ptrdiff_t bytesWhileWritten(const Plane& plane, Target target) {
    const int rest = plane.cols() / 3 % 16;
    const bool padded = target == Target::RGB && rest >= 1 && rest <= 7;
    return std::ptrdiff_t{plane.rows()} * (plane.cols() + (padded ? 3 * (16 - rest) : 0));
}

/// How many of the spare bytes after a plane no longer hold what they were filled with: everything
/// up to the last one that was written.
std::size_t writtenBehind(const Plane& plane, Target target, uint8_t filled) {
    const uint8_t* const end = plane.data() + bytesWhileWritten(plane, target);
    std::size_t written = MatAlloc::spareBytes;
    while (written > 0 && end[written - 1] == filled)
        --written;
    return written;
}

/// Converts with memory that is full of one byte, then of another: what stays unwritten differs
/// from the reference in one of them.
class EveryByte : public ::testing::TestWithParam<std::tuple<const char*, Target>> {
protected:
    // swscale has a word to say about every one of the yuvj formats.
    static void SetUpTestSuite() { av_log_set_level(AV_LOG_ERROR); }
    static void TearDownTestSuite() { av_log_set_level(AV_LOG_INFO); }

    const AVPixelFormat source = av_get_pix_fmt(std::get<0>(GetParam()));
    const Target target = std::get<1>(GetParam());

    void expectEveryByte(AVFrame& frame) {
        const test::ReferenceConversion reference(frame, ffPixelFormat(target));
        SWScaleDecoder decoder({frame.height, frame.width}, source, target);
        for (const uint8_t filling : {uint8_t{0x00}, uint8_t{0xFF}}) {
            const FreshMemory memory(filling);
            const auto planes = planesOf(decoder.convertFrame(&frame), target);
            for (std::size_t i = 0; i < planes.size(); ++i) {
                ASSERT_EQ(reference.differenceIn(i, planes[i].data()), "")
                    << frame.width << " x " << frame.height << ", plane " << i;
                ASSERT_LT(writtenBehind(planes[i], target, filling), MatAlloc::spareBytes)
                    << frame.width << " x " << frame.height << ", plane " << i;
            }
        }
    }
};

class EveryByteOfSmallPictures : public EveryByte {};

TEST_P(EveryByteOfSmallPictures, IsWrittenInEverySizeUpToAHundred) {
    constexpr int most = 100;
    const FramePointer frame = makeNoise(source, most, most);
    for (frame->height = 1; frame->height <= most; ++frame->height) {
        for (frame->width = 1; frame->width <= most && !HasFatalFailure(); ++frame->width)
            expectEveryByte(*frame);
    }
}

class EveryByteOfVideo : public EveryByte {};

TEST_P(EveryByteOfVideo, IsWrittenInEveryCommonSize) {
    const std::vector<std::pair<int, int>> sizes = {
        {426, 240},   {608, 1080}, {640, 360},  {720, 576},  {852, 480},  {854, 480},
        {1080, 1920}, {1280, 720}, {1365, 767}, {1366, 768}, {1920, 1080}};
    for (const auto& [width, height] : sizes)
        ASSERT_NO_FATAL_FAILURE(expectEveryByte(*makeNoise(source, width, height)));
}

std::string nameOf(const ::testing::TestParamInfo<EveryByte::ParamType>& info) {
    return std::string(std::get<0>(info.param)) +
           (std::get<1>(info.param) == Target::RGB ? "ToRgb" : "ToNv12");
}

INSTANTIATE_TEST_SUITE_P(Pictures, EveryByteOfSmallPictures,
                         ::testing::Combine(::testing::Values("yuv420p", "yuvj420p", "yuv422p",
                                                              "yuv444p", "nv12", "gray",
                                                              "yuv420p10le", "bgr24"),
                                            ::testing::Values(Target::RGB, Target::NV12)),
                         nameOf);

const char* const sourceFormats[] = {"yuv420p",     "yuvj420p", "yuv422p", "yuvj422p",
                                     "yuv444p",     "yuva420p", "nv12",    "gray",
                                     "yuv420p10le", "bgr24",    "gbrp",    "pal8"};

INSTANTIATE_TEST_SUITE_P(Pictures, EveryByteOfVideo,
                         ::testing::Combine(::testing::ValuesIn(sourceFormats),
                                            ::testing::Values(Target::RGB, Target::NV12)),
                         nameOf);

class SourceFormat : public ::testing::TestWithParam<const char*> {};

// Where the allocator's spare bytes come from.
TEST_P(SourceFormat, IsConvertedWithoutPassingTheSpareBytesBehindABlock) {
    const FramePointer frame = makeNoise(av_get_pix_fmt(GetParam()), 64, 4);
    std::ptrdiff_t farthest = 0;
    for (frame->height = 1; frame->height <= 4; ++frame->height) {
        for (frame->width = 1; frame->width <= 64; ++frame->width)
            farthest = std::max(farthest, test::reachPastTheEnd(*frame));
    }
    RecordProperty("farthest", static_cast<int>(farthest));
    EXPECT_LT(farthest, std::ptrdiff_t{MatAlloc::spareBytes});
}

INSTANTIATE_TEST_SUITE_P(Pictures, SourceFormat, ::testing::ValuesIn(sourceFormats));

} // namespace
} // namespace tio
