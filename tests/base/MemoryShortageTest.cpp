#include "support/ClipMaker.h"
#include "support/Demuxing.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Mp4Edits.h"
#include "support/ReaderPictures.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameIndex.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>

namespace tio::ffmpeg {
namespace {

using test::numberIn;
using test::thrownText;
using ::testing::StartsWith;

const std::string noMemory = "Cannot allocate memory";

/// What is read while memory runs out, and once there is some again.
class MemoryShortageTest : public ::testing::Test {
protected:
    void SetUp() override { test::makeClip(clip, {}); }

    std::shared_ptr<InputFormatContext> input() const {
        return std::make_shared<InputFormatContext>(clip);
    }

    FrameIndex build(bool checksums) const {
        FrameIndexOptions options;
        options.checksums = checksums;
        return FrameIndex::build(input(), options);
    }

    /// Call number `number` from now on fails, from 1.
    void failReading(int number) {
        intercepted->av_read_frame.count = 0;
        intercepted->av_read_frame.instead = [number](AVFormatContext* context, AVPacket* packet) {
            return test::calls().av_read_frame.count == number
                       ? AVERROR(ENOMEM)
                       : test::real::readFrame(context, packet);
        };
    }

    void failDecoding(int number) {
        intercepted->avcodec_send_packet.count = 0;
        intercepted->avcodec_send_packet.instead = [number](AVCodecContext* context,
                                                            const AVPacket* packet) {
            return test::calls().avcodec_send_packet.count == number
                       ? AVERROR(ENOMEM)
                       : test::real::sendPacket(context, packet);
        };
    }

    test::TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    test::LogCapture log;
    test::Interception intercepted;
};

TEST_F(MemoryShortageTest, NoIndexIsMadeOfTheFirstPartOfAStream) {
    failReading(10);
    EXPECT_THAT(thrownText<Exception>([this] { (void)build(false); }), StartsWith(noMemory));
}

TEST_F(MemoryShortageTest, NoPictureIsLeftOutOfAnIndexThatIsMadeByDecoding) {
    failDecoding(10);
    EXPECT_THAT(thrownText<Exception>([this] { (void)build(true); }), StartsWith(noMemory));
}

TEST_F(MemoryShortageTest, NoPictureIsLeftOutAtTheEndOfAStream) {
    constexpr int packets = 25;
    failDecoding(packets + 1); // the call that says that no packet follows
    EXPECT_THAT(thrownText<Exception>([this] { (void)build(true); }), StartsWith(noMemory));
}

TEST_F(MemoryShortageTest, AFrameThatCouldNotBeDecodedCanBeReadAgain) {
    FrameReader reader(input(), PixelFormat::RGB);
    failDecoding(2);
    EXPECT_THAT(thrownText<Exception>([&] { (void)reader.readFrame(20); }), StartsWith(noMemory));
    EXPECT_EQ(numberIn(reader.readFrame(20)), 20);
    EXPECT_FALSE(reader.index().isDamaged());
}

// Without its tag the pictures of such a clip would lie on their side.
TEST_F(MemoryShortageTest, AClipWhoseRotationCannotBeKeptIsNotOpened) {
    test::setRotation(clip, 90);
    const test::VideoDemuxer demuxer(clip);
    if (av_dict_get(demuxer.stream().metadata, "rotate", nullptr, 0) != nullptr)
        GTEST_SKIP() << "this FFmpeg makes the tag itself";
    intercepted->av_dict_set.instead = [](AVDictionary**, const char*, const char*, int) {
        return AVERROR(ENOMEM);
    };
    EXPECT_THAT(thrownText<Exception>([this] { (void)input(); }), StartsWith(noMemory));
    EXPECT_THAT(thrownText<Exception>([this] { InputFormatContext(clip, OpenOptions{}); }),
                StartsWith(noMemory));
}

TEST_F(MemoryShortageTest, AnOptionThatCannotBeKeptIsNotLeftOut) {
    intercepted->av_dict_set.instead = [](AVDictionary**, const char*, const char*, int) {
        return AVERROR(ENOMEM);
    };
    OpenOptions options;
    options.demuxerOptions["ignore_editlist"] = "1";
    EXPECT_THROW(InputFormatContext(clip, options), std::bad_alloc);
}

} // namespace
} // namespace tio::ffmpeg
