#include "StreamEncoderFixture.h"
#include "support/EncoderInput.h"
#include "support/Muxing.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>

#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace tio::ffmpeg {
namespace {

using test::mono;
using test::numberedBlock;
using test::ownLines;
using test::plainImage;
using test::StreamEncoderTest;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// The course of a file

TEST_F(StreamEncoderTest, TheHeaderIsWrittenWhenTheFirstPacketComesOut) {
    open();
    auto video = makeVideo();
    writePictures(*video, 0, 2);
    EXPECT_FALSE(context->readyForPackets()) << "the encoder still holds both";
    EXPECT_FALSE(std::filesystem::exists(path));
    video.reset();
    EXPECT_TRUE(context->readyForPackets()) << "flushing gave them";
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 2);
}

TEST_F(StreamEncoderTest, PacketsAreWrittenAsSoonAsTheEncoderGivesThem) {
    test::MuxerRecord muxer;
    encodeAtOnce();
    open();
    const auto video = makeVideo();
    for (int64_t i = 1; i <= 3; ++i) {
        video->writeNextFrame(plainImage(48, 64), Rational(i, 25));
        EXPECT_THAT(muxer.packets, SizeIs(static_cast<size_t>(i)));
    }
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3));
}

TEST_F(StreamEncoderTest, ALongStreamIsWrittenWhileItIsEncoded) {
    test::MuxerRecord muxer;
    open();
    auto video = makeVideo();
    writePictures(*video, 0, 100);
    const auto before = muxer.packets.size();
    EXPECT_GT(before, 0u);
    EXPECT_LT(before, 100u);
    video.reset();
    EXPECT_THAT(muxer.packets, SizeIs(100));
}

TEST_F(StreamEncoderTest, WithoutAFrameNothingIsWrittenAndNoFileAppears) {
    open();
    makeVideo().reset();
    context.reset();
    EXPECT_EQ(intercepted->avformat_new_stream.count, 0);
    EXPECT_EQ(intercepted->avio_open.count, 0);
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_THAT(ownLines(log), IsEmpty());
}

TEST_F(StreamEncoderTest, TheTrailerFollowsTheLastEncoderThatHoldsTheContext) {
    open();
    auto video = makeVideo();
    writePictures(*video, 0, 2);
    context.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    video.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 1);
}

TEST_F(StreamEncoderTest, TheDestructorFlushesBeforeItsStreamWritesWhatItHeld) {
    test::MuxerRecord muxer;
    open();
    auto video = makeVideo();
    auto audio = makeAudio();
    writePictures(*video, 0, 100); // some come out and are held, the rest stays in the encoder
    audio.reset();
    EXPECT_FALSE(context->readyForPackets());
    EXPECT_THAT(muxer.packets, IsEmpty());
}

TEST_F(StreamEncoderTest, SoundIsNotLostWhenItsEncoderGoesBeforeTheFirstPictureComesOut) {
    test::MuxerRecord muxer;
    open();
    auto video = makeVideo();
    auto audio = makeAudio();
    writePictures(*video, 0, 2); // fewer than the encoder holds back
    writeSound(*audio, 0, 3);
    audio.reset();
    video.reset();
    EXPECT_THAT(muxer.packets, SizeIs(2 + 4)) << "AAC gives one packet more than it takes blocks";
    EXPECT_THAT(ownLines(log), IsEmpty());
}

TEST_F(StreamEncoderTest, AnEncoderThatCannotBeMadeAnnouncesNoStream) {
    open();
    auto video = makeVideo();
    EXPECT_THROW(makeAudio(0), Exception);
    writePictures(*video, 0, 2);
    video.reset();
    EXPECT_TRUE(context->readyForPackets());
}

TEST_F(StreamEncoderTest, SoundBeforeTheFirstPictureIsHeldThenWrittenShiftedByIt) {
    test::MuxerRecord muxer;
    encodeAtOnce();
    open();
    const auto video = makeVideo();
    const auto audio = makeAudio();
    writePictures(*video, 1, 2); // 40 ms after zero, which are 1920 samples
    writeSound(*audio, 0, 2);
    EXPECT_TRUE(context->readyForPackets());
    EXPECT_THAT(muxer.packets, IsEmpty());
    writePictures(*video, 2, 3);
    EXPECT_THAT(muxer.all(&test::MuxedPacket::stream), ElementsAre(1, 1, 0, 0));
    EXPECT_THAT(muxer.pts(), ElementsAre(-1920, -896, 0, 3600));
}

// Times

TEST_F(StreamEncoderTest, PicturesWithATimeGetThatTime) {
    noteTimes();
    open();
    const auto video = makeVideo(Rational(1, 1000));
    video->writeNextFrame(plainImage(48, 64), Rational(1, 3));
    video->writeNextFrame(plainImage(48, 64), Rational(2, 1));
    EXPECT_THAT(times, ElementsAre(333, 2000));
}

TEST_F(StreamEncoderTest, TenPicturesWithoutATimeAllGetMinusOneTick) {
    noteTimes();
    open();
    const auto video = makeVideo();
    for (int i = 0; i < 10; ++i)
        video->writeNextFrame(plainImage(48, 64));
    EXPECT_THAT(times, SizeIs(10));
    EXPECT_THAT(times, Each(-1));
}

TEST_F(StreamEncoderTest, APictureWithoutATimeGoesBackToMinusOneTickAlsoAfterOneThatHasOne) {
    noteTimes();
    open();
    const auto video = makeVideo();
    video->writeNextFrame(plainImage(48, 64), Rational(10, 1));
    video->writeNextFrame(plainImage(48, 64));
    EXPECT_THAT(times, ElementsAre(250, -1));
}

TEST_F(StreamEncoderTest, BlocksWithoutATimeAllGetMinusOneTick) {
    noteTimes();
    open();
    const auto audio = makeAudio();
    for (int i = 0; i < 3; ++i)
        audio->writeNextFrame(numberedBlock(1024, 2));
    EXPECT_THAT(times, ElementsAre(-1, -1, -1));
}

TEST_F(StreamEncoderTest, TheVideoEncoderHasItsDefaultOptions) {
    std::string preset, level;
    intercepted->codecOptions = [&](const AVDictionary* options) {
        preset = av_dict_get(options, "preset", nullptr, 0)->value;
        level = av_dict_get(options, "level", nullptr, 0)->value;
        EXPECT_EQ(av_dict_count(options), 2);
    };
    open();
    makeVideo();
    EXPECT_EQ(preset, "veryfast");
    EXPECT_EQ(level, "51");
}

TEST_F(StreamEncoderTest, SoundWithoutATimeBaseCountsSamples) {
    noteTimes();
    open();
    const auto audio = makeAudio(mono, 44100, Rational(0, 1));
    EXPECT_EQ(audio->getFrameWidth(), 1024u);
    audio->writeNextFrame(numberedBlock(1024, 1), Rational(1, 44100));
    audio->writeNextFrame(numberedBlock(1024, 1), Rational(1025, 44100));
    EXPECT_THAT(times, ElementsAre(1, 1025));
}

TEST_F(StreamEncoderTest, SoundWithATimeBaseCountsInIt) {
    noteTimes();
    open();
    const auto audio = makeAudio(mono, 44100, Rational(1, 1000));
    audio->writeNextFrame(numberedBlock(1024, 1), Rational(2, 1));
    EXPECT_THAT(times, ElementsAre(2000));
}

TEST_F(StreamEncoderTest, TheStreamsTimeBaseInTheFileIsOneOverTheSampleRate) {
    test::MuxerRecord muxer(test::MuxerRecord::Then::PassOn);
    open();
    auto audio = makeAudio(mono, 44100);
    audio->writeNextFrame(numberedBlock(1024, 1), Rational());
    audio.reset();
    const AVRational timeBase = context->getStream(0)->time_base;
    EXPECT_EQ(timeBase.num, 1);
    EXPECT_EQ(timeBase.den, 44100);
    EXPECT_THAT(muxer.pts(), ElementsAre(0, 1024)) << "the first packet, of -1024, is time zero";
}

} // namespace
} // namespace tio::ffmpeg
