#include "StreamEncoderFixture.h"
#include "support/EncoderInput.h"
#include "support/Expectations.h"
#include "support/FullDisk.h"
#include "support/Muxing.h"
#include "support/WrittenFile.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/VideoStreamEncoder.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ffmpegText;
using test::IsLogLine;
using test::numberedBlock;
using test::ownLines;
using test::plainImage;
using test::StreamEncoderDeathTest;
using test::StreamEncoderTest;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// Failures

TEST_F(StreamEncoderTest, AFailureOfTheEncoderReachesTheCaller) {
    open();
    const auto video = makeVideo();
    intercepted->avcodec_send_frame.instead = [](AVCodecContext*, const AVFrame*) {
        return AVERROR(ENOMEM);
    };
    EXPECT_EQ(thrownText<Exception>([&] { writePictures(*video, 0, 1); }),
              ffmpegText(AVERROR(ENOMEM)) + test::placeText("PacketEncoder", 140));
    intercepted->avcodec_send_frame.instead = nullptr;
    EXPECT_NO_THROW(writePictures(*video, 1, 3));
}

TEST_F(StreamEncoderTest, AnImageOfAnotherSizeReachesTheCallerAndTheFileIsNotHarmed) {
    open();
    auto video = makeVideo();
    writePictures(*video, 0, 2);
    EXPECT_THROW(video->writeNextFrame(plainImage(50, 64), Rational(2, 25)), tio::Exception);
    writePictures(*video, 3, 4);
    video.reset();
    EXPECT_NO_THROW(context->finish());
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 3);
}

// 6 h 37 min. The packets would come out in the destructor, where an exception ends the program.
TEST_F(StreamEncoderTest, APictureAfterTooLongAPauseIsRefusedAndTheNextOneTaken) {
    open();
    auto video = makeVideo();
    writePictures(*video, 0, 2);
    EXPECT_EQ(thrownText<tio::Exception>(
                  [&] { video->writeNextFrame(plainImage(48, 64), Rational(25000, 1)); }),
              "A pause of 24999.960 s is too long for \"" + path +
                  "\": MP4 takes up to 23860.929 s in this stream");
    video->writeNextFrame(plainImage(48, 64), Rational(23860, 1));
    video.reset();
    context->finish();
    EXPECT_EQ(test::readFile(path).ptsOf(0),
              (std::vector<int64_t>{0, 3600, int64_t{23860} * 90000}));
}

TEST_F(StreamEncoderTest, ABlockAfterTooLongAPauseIsRefusedAndTheNextOneTaken) {
    open();
    auto audio = makeAudio();
    writeSound(*audio, 0, 2);
    EXPECT_THAT(thrownText<tio::Exception>(
                    [&] { audio->writeNextFrame(numberedBlock(1024, 2), Rational(44740, 1)); }),
                ::testing::HasSubstr("MP4 takes up to 44739.243 s in this stream"));
    writeSound(*audio, 2, 4);
    audio.reset();
    EXPECT_NO_THROW(context->finish());
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 5);
}

// Times of an encoder are truncated to its ticks before they are compared.
TEST_F(StreamEncoderTest, APauseIsMeasuredInTheTicksOfTheEncoder) {
    open();
    auto video = makeVideo(Rational(1, 1));
    video->writeNextFrame(plainImage(48, 64), Rational(9, 10));
    EXPECT_THROW(video->writeNextFrame(plainImage(48, 64), Rational(47723, 2)), tio::Exception)
        << "23860.6 s, but 23861 ticks of a second";
    video->writeNextFrame(plainImage(48, 64), Rational(23860, 1));
    video.reset(); // and the program lives
    EXPECT_NO_THROW(context->finish());
}

TEST_F(StreamEncoderTest, ANullContextIsRefused) {
    EXPECT_EQ(thrownText<tio::Exception>([this] { makeVideo(); }),
              "An output stream needs a context");
    EXPECT_EQ(thrownText<tio::Exception>([this] { makeAudio(); }),
              "An output stream needs a context");
}

TEST_F(StreamEncoderTest, APathThatCannotBeOpenedThrowsEveryTimeAndTheProgramLives) {
    encodeAtOnce();
    path = badPath;
    open();
    auto video = makeVideo();
    for (int64_t i = 1; i <= 3; ++i)
        EXPECT_EQ(thrownText<Exception>([&] { writePictures(*video, i, i + 1); }),
                  ffmpegText(AVERROR(ENOENT)));
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
    video.reset();
    context.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 0);
}

TEST_F(StreamEncoderTest, WhatTheEncoderStillHoldsForSuchAFileIsLetGoWithOneLine) {
    path = badPath;
    open();
    auto video = makeVideo();
    int64_t written = 0;
    EXPECT_EQ(thrownText<Exception>([&] {
                  for (; written < 200; ++written)
                      writePictures(*video, written, written + 1);
              }),
              ffmpegText(AVERROR(ENOENT)));
    // The picture that threw was taken; of the packets, the one that did come out is lost.
    const int left = static_cast<int>(written);
    video.reset();
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4, lossOf(left))));
}

TEST_F(StreamEncoderTest, TheOtherEncodersOfSuchAFileLetTheirPacketsGoWithOneLineEach) {
    path = badPath;
    open();
    auto video = makeVideo();
    auto audio = makeAudio();
    writePictures(*video, 0, 40);
    EXPECT_THROW(writeSound(*audio, 0, 5), Exception);
    EXPECT_THROW(writePictures(*video, 40, 42), Exception);
    audio.reset();
    EXPECT_THAT(ownLines(log), SizeIs(1));
    video.reset();
    EXPECT_THAT(ownLines(log), SizeIs(2));
    context.reset();
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 0);
}

TEST_F(StreamEncoderTest, WhenAnotherEncoderGetsNoFrameAllPicturesAreLetGoWithOneLine) {
    open();
    auto video = makeVideo();
    auto audio = makeAudio();
    writePictures(*video, 0, 40);
    video.reset();
    audio.reset();
    context.reset();
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4, lossOf(40))));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(StreamEncoderTest, AfterAFullDiskTheEncoderGoesWithOneLineAndTheProgramLives) {
    const test::FullDisk disk(1000);
    open();
    auto video =
        std::make_unique<VideoStreamEncoder>(context, tio::Vec<int, 2>(240, 320), Rational(1, 25));
    EXPECT_EQ(thrownText<Exception>([&] {
                  for (int64_t i = 0; i < 200; ++i)
                      video->writeNextFrame(test::spottedImage(240, 320), Rational(i, 25));
              }),
              ffmpegText(AVERROR(ENOSPC)));
    EXPECT_THAT(ownLines(log), IsEmpty());
    video.reset();
    EXPECT_THAT(ownLines(log), ElementsAre(::testing::Field(&test::LogLine::level, 4)));
    context.reset();
}

TEST_F(StreamEncoderDeathTest, AfterAWriteThatFailedTheEncoderGoesWithOneLine) {
    open();
    auto video = makeVideo();
    writePictures(*video, 0, 50);
    intercepted->av_interleaved_write_frame.instead = [](AVFormatContext*, AVPacket* packet) {
        av_packet_unref(packet);
        return AVERROR(ENOSPC);
    };
    // The caller is told when the next packet comes out; more is left for the destructor.
    EXPECT_THROW(writePictures(*video, 50, 60), Exception);
    EXPECT_THAT(ownLines(log), IsEmpty());
    const auto linesOfTheDestructor = [&] {
        video.reset();
        return static_cast<int>(ownLines(log).size());
    };
    EXPECT_EXIT(std::_Exit(linesOfTheDestructor()), ::testing::ExitedWithCode(1), "");
    intercepted->av_interleaved_write_frame.instead = nullptr;
}

TEST_F(StreamEncoderDeathTest, AnEncoderThatCannotBeFlushedEndsTheProgram) {
    open();
    auto video = makeVideo();
    writePictures(*video, 0, 2);
    intercepted->avcodec_receive_packet.instead = [](AVCodecContext*, AVPacket*) {
        return AVERROR_EXTERNAL;
    };
    EXPECT_DEATH(video.reset(), ffmpegText(AVERROR_EXTERNAL));
    intercepted->avcodec_receive_packet.instead = nullptr;
}

TEST_F(StreamEncoderDeathTest, AFirstFailureInTheDestructorEndsTheProgram) {
    open();
    auto video = makeVideo();
    writePictures(*video, 0, 2); // both stay in the encoder, so nobody has been told yet
    intercepted->avio_open.instead = [](AVIOContext**, const char*, int) {
        return AVERROR(EACCES);
    };
    EXPECT_DEATH(video.reset(), ffmpegText(AVERROR(EACCES)));
    intercepted->avio_open.instead = nullptr;
}

} // namespace
} // namespace tio::ffmpeg
