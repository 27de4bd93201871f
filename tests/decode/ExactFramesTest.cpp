#include "support/ClipMaker.h"
#include "support/ClipTable.h"
#include "support/Demuxing.h"
#include "support/HashedPicture.h"
#include "support/MediaFolder.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <vector>

/// @file
/// Every picture and every time of the reader against FFmpeg called directly, over tables of made
/// and of real clips.

namespace tio::ffmpeg {
namespace {

using test::Access;
using test::OracleFormat;
using test::OracleFrame;

testing::AssertionResult isFrame(const VideoPacketDecoder::Frame& found,
                                 const OracleFrame& expected) {
    if (!found.frame)
        return testing::AssertionFailure() << "no picture";
    const test::OracleTime time = expected.time();
    if (found.timestamp.numerator != time.numerator ||
        found.timestamp.denominator != time.denominator)
        return testing::AssertionFailure()
               << "time " << found.timestamp.numerator << "/" << found.timestamp.denominator
               << " instead of " << time.numerator << "/" << time.denominator;
    const test::HashedPicture picture = test::hashedPicture(*found.frame);
    if (picture.width != expected.width || picture.height != expected.height)
        return testing::AssertionFailure()
               << "size " << picture.width << "x" << picture.height << " instead of "
               << expected.width << "x" << expected.height;
    if (picture.hash != expected.hash)
        return testing::AssertionFailure() << "another picture";
    return testing::AssertionSuccess();
}

/// Opens one clip in the library, and in the oracle once.
class ExactClip : public testing::Test {
protected:
    void open(const std::string& path, PixelFormat format) {
        test::OracleOptions options;
        options.format = format == PixelFormat::RGB ? OracleFormat::Rgb : OracleFormat::Nv12;
        expected = test::oracleFrames(path, options);
        wanted = format;
        decoder = std::make_unique<VideoStreamDecoder>(std::make_shared<InputFormatContext>(path),
                                                       format);
    }

    void expectFramesInOrder() {
        for (std::size_t n = 0; n < expected.size(); ++n)
            ASSERT_TRUE(isFrame(decoder->readNextFrame(), expected[n])) << "frame " << n;
        EXPECT_FALSE(decoder->readNextFrame().frame) << "a picture after the last one";
    }

    void expectFramesBySeeking(const std::vector<std::size_t>& order) {
        ASSERT_EQ(decoder->getFrameCount(), static_cast<int64_t>(expected.size()));
        for (const std::size_t n : order) {
            decoder->seek(static_cast<int64_t>(n));
            ASSERT_TRUE(isFrame(decoder->readNextFrame(), expected[n])) << "frame " << n;
        }
    }

    void expectFramesInEveryOrder() {
        std::vector<std::size_t> order(expected.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        {
            SCOPED_TRACE("seeking forward");
            expectFramesBySeeking(order);
        }
        std::reverse(order.begin(), order.end());
        {
            SCOPED_TRACE("seeking in reverse");
            expectFramesBySeeking(order);
        }
        std::shuffle(order.begin(), order.end(), std::mt19937(1));
        SCOPED_TRACE("seeking in shuffled order");
        expectFramesBySeeking(order);
    }

    std::vector<OracleFrame> expected;
    PixelFormat wanted = PixelFormat::Default;
    std::unique_ptr<VideoStreamDecoder> decoder;
    test::TemporaryFolder folder;
};

template <typename Clip>
std::vector<Clip> seekable(std::vector<Clip> clips) {
    clips.erase(std::remove_if(clips.begin(), clips.end(),
                               [](const Clip& clip) { return clip.access != Access::EveryOrder; }),
                clips.end());
    return clips;
}

// ---- made clips ------------------------------------------------------------------------------

class MadeClipTest : public ExactClip, public testing::WithParamInterface<test::MadeClip> {
protected:
    void openMade(PixelFormat format) {
        path = folder.file("clip." + GetParam().extension);
        GetParam().make(path);
        open(path, format);
        ASSERT_FALSE(expected.empty()) << GetParam().name;
    }

    std::string path;
};

using MadeClipSeekTest = MadeClipTest;

std::string nameOf(const testing::TestParamInfo<test::MadeClip>& info) {
    return info.param.name;
}

TEST_P(MadeClipTest, ReadsEveryFrameAsRgb) {
    SCOPED_TRACE(GetParam().name);
    openMade(PixelFormat::RGB);
    expectFramesInOrder();
}

TEST_P(MadeClipTest, ReadsEveryFrameAsNv12) {
    SCOPED_TRACE(GetParam().name);
    openMade(PixelFormat::NV12);
    expectFramesInOrder();
}

// Counting frames takes a rewind to before all times, which some demuxers refuse: AVI and FLV do on
// all FFmpeg releases tried.
TEST_P(MadeClipTest, CountsFramesWhereFfmpegCanRewind) {
    constexpr int64_t beforeAllTimes = -9223372036854;
    openMade(PixelFormat::RGB);
    if (test::VideoDemuxer(path).seekToOrBefore(beforeAllTimes))
        EXPECT_GE(decoder->getFrameCount(), static_cast<int64_t>(expected.size()));
    else
        EXPECT_THROW(static_cast<void>(decoder->getFrameCount()), Exception);
}

TEST_P(MadeClipSeekTest, FindsEveryFrameInEveryOrder) {
    SCOPED_TRACE(GetParam().name);
    openMade(PixelFormat::RGB);
    expectFramesInEveryOrder();
}

INSTANTIATE_TEST_SUITE_P(ExactFrames, MadeClipTest, testing::ValuesIn(test::madeClips()), nameOf);
INSTANTIATE_TEST_SUITE_P(ExactFrames, MadeClipSeekTest,
                         testing::ValuesIn(seekable(test::madeClips())), nameOf);

// Its packets carry no times, so there is nothing by which frames could be told apart.
class RawH264Test : public ExactClip {
protected:
    void SetUp() override {
        test::ClipPlan plan;
        plan.format = "h264";
        test::makeClip(folder.file("clip.h264"), plan);
        open(folder.file("clip.h264"), PixelFormat::RGB);
    }
};

TEST_F(RawH264Test, YieldsNoFrames) {
    EXPECT_FALSE(decoder->readNextFrame().frame);
}

TEST_F(RawH264Test, CannotBeIndexedSinceItCannotBeRewound) {
    EXPECT_THROW(static_cast<void>(decoder->getFrameCount()), Exception);
}

// ---- real clips ------------------------------------------------------------------------------

class RealClipTest : public ExactClip, public testing::WithParamInterface<test::RealClip> {
protected:
    void SetUp() override {
        file = test::mediaFile("video/" + GetParam().file);
        if (!file)
            GTEST_SKIP() << test::mediaMissingMessage();
    }

    /// Whether the folder's own table, which other programs made, tells of as many frames. It
    /// guesses times where a stream lacks some, so for such a stream it says nothing.
    bool truthAgrees(std::size_t frameCount) const {
        const std::vector<test::TruthRow> rows = test::readTruth();
        return std::any_of(rows.begin(), rows.end(), [&](const test::TruthRow& row) {
            return row.at("file") == "video/" + GetParam().file && row.at("type") == "video" &&
                   (row.at("packets_no_pts") != "0" ||
                    row.at("distinct_frame_pts") == std::to_string(frameCount));
        });
    }

    std::optional<std::filesystem::path> file;
};

using RealClipSeekTest = RealClipTest;

std::string nameOfReal(const testing::TestParamInfo<test::RealClip>& info) {
    std::string name = info.param.file;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
}

TEST_P(RealClipTest, ReadsEveryFrameAsRgb) {
    SCOPED_TRACE(GetParam().file);
    open(file->string(), PixelFormat::RGB);
    EXPECT_TRUE(truthAgrees(expected.size())) << expected.size() << " frames in the oracle";
    expectFramesInOrder();
}

TEST_P(RealClipSeekTest, ReadsEveryFrameAsNv12) {
    SCOPED_TRACE(GetParam().file);
    open(file->string(), PixelFormat::NV12);
    expectFramesInOrder();
}

TEST_P(RealClipSeekTest, FindsEveryFrameInEveryOrder) {
    SCOPED_TRACE(GetParam().file);
    open(file->string(), PixelFormat::RGB);
    expectFramesInEveryOrder();
}

INSTANTIATE_TEST_SUITE_P(ExactFrames, RealClipTest, testing::ValuesIn(test::realClips()),
                         nameOfReal);
INSTANTIATE_TEST_SUITE_P(ExactFrames, RealClipSeekTest,
                         testing::ValuesIn(seekable(test::realClips())), nameOfReal);

} // namespace
} // namespace tio::ffmpeg
