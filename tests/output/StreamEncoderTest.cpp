#include "support/EncoderInput.h"
#include "support/Expectations.h"
#include "support/FullDisk.h"
#include "support/Muxing.h"
#include "support/WritingTest.h"
#include "support/WrittenFile.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/AudioStreamEncoder.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/VideoStreamEncoder.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ffmpegText;
using test::IsLogLine;
using test::numberedBlock;
using test::ownLines;
using test::plainImage;
using test::thrownText;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr int mono = 4;
constexpr int stereo = 3;

class StreamEncoderTest : public test::WritingTest {
protected:
    std::unique_ptr<VideoStreamEncoder> makeVideo(Rational timeBase = Rational(1, 25)) const {
        return std::make_unique<VideoStreamEncoder>(context, tio::Vec<int, 2>(48, 64), timeBase);
    }
    std::unique_ptr<AudioStreamEncoder> makeAudio(int layout = stereo, int rate = 48000,
                                                  Rational timeBase = Rational()) const {
        return std::make_unique<AudioStreamEncoder>(context, layout, rate, timeBase);
    }

    static void writePictures(VideoStreamEncoder& video, int64_t from, int64_t to) {
        for (int64_t i = from; i < to; ++i)
            video.writeNextFrame(plainImage(48, 64), Rational(i, 25));
    }
    static void writeSound(AudioStreamEncoder& audio, int64_t from, int64_t to) {
        for (int64_t i = from; i < to; ++i)
            audio.writeNextFrame(numberedBlock(1024, 2), Rational(1024 * i, 48000));
    }

    // Swallows the frames and notes their times.
    void noteTimes() {
        intercepted->avcodec_send_frame.instead = [this](AVCodecContext*, const AVFrame* frame) {
            if (frame != nullptr)
                times.push_back(frame->pts);
            return 0;
        };
        intercepted->avcodec_receive_packet.instead = [](AVCodecContext*, AVPacket*) {
            return AVERROR(EAGAIN);
        };
    }

    // Answers every frame with one packet of its time, so that nothing is left for the flush.
    void encodeAtOnce() {
        intercepted->avcodec_send_frame.instead = [this](AVCodecContext*, const AVFrame* frame) {
            if (frame != nullptr)
                times.push_back(frame->pts);
            return 0;
        };
        intercepted->avcodec_receive_packet.instead = [this](AVCodecContext*, AVPacket* packet) {
            if (times.empty())
                return AVERROR(EAGAIN);
            test::check(av_new_packet(packet, 1), "packet");
            packet->data[0] = static_cast<uint8_t>(times.front());
            packet->pts = packet->dts = times.front();
            times.erase(times.begin());
            return 0;
        };
    }

    std::vector<int64_t> times;
};

using StreamEncoderDeathTest = StreamEncoderTest;

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
