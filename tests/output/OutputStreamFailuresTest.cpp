#include "OutputStreamFixture.h"
#include "support/Expectations.h"
#include "support/Muxing.h"
#include "support/WrittenFile.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/OutputStream.h>

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ffmpegText;
using test::IsLogLine;
using test::OutputStreamTest;
using test::ownLines;
using test::placeText;
using test::thrownText;
using test::ticks;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Failures

TEST_F(OutputStreamTest, ThrowsWhenThePacketCannotBeReferenced) {
    open();
    const auto stream = makeStream();
    const auto first = picture(1, 0);
    int references = 0;
    intercepted->av_packet_ref.instead = [&](AVPacket* target, const AVPacket* source) {
        // The first reference is the copy that is held, the second the one to be written.
        return ++references == 2 ? AVERROR(ENOMEM) : test::real::reference(target, source);
    };
    const std::string expected = ffmpegText(AVERROR(ENOMEM)) + placeText("OutputStream", 70);
    EXPECT_EQ(thrownText<Exception>([&] { stream->writePacket(first); }), expected);
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 5, expected)));
}

TEST_F(OutputStreamTest, ThrowsWhenThereIsNoMemoryForThePacket) {
    open();
    const auto stream = makeStream();
    const auto first = picture(1, 0);
    int packets = 0;
    intercepted->av_packet_alloc.instead = [&]() -> AVPacket* {
        return ++packets == 2 ? nullptr : test::real::allocatePacket();
    };
    EXPECT_EQ(thrownText<Exception>([&] { stream->writePacket(first); }),
              ffmpegText(AVERROR(ENOMEM)) + placeText("OutputStream", 70));
}

TEST_F(OutputStreamTest, APacketThatCouldNotBeWrittenIsHeldAndTriedAgainFirst) {
    test::MuxerRecord muxer;
    open();
    const auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    const auto swallow = intercepted->av_interleaved_write_frame.instead;
    intercepted->av_interleaved_write_frame.instead = [](AVFormatContext*, AVPacket*) {
        return AVERROR(EIO);
    };
    EXPECT_THROW(stream->writePacket(picture(2, 3600)), Exception);
    intercepted->av_interleaved_write_frame.instead = swallow;
    stream->writePacket(picture(3, 7200));
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3));
}

TEST_F(OutputStreamTest, WhatWasWrittenBeforeAFailureIsNotWrittenAgain) {
    test::MuxerRecord muxer;
    open();
    const auto pictures = makeStream();
    const auto others = makeStream();
    pictures->writePacket(picture(1, 0));
    pictures->writePacket(picture(2, 3600));
    others->writePacket(picture(9, 0));
    const auto swallow = intercepted->av_interleaved_write_frame.instead;
    intercepted->av_interleaved_write_frame.instead = [&](AVFormatContext* to, AVPacket* written) {
        return written->data[0] == 2 ? AVERROR(EIO) : swallow(to, written);
    };
    EXPECT_THROW(pictures->writePacket(picture(3, 7200)), Exception);
    intercepted->av_interleaved_write_frame.instead = swallow;
    pictures->writePacket(picture(4, 10800));
    EXPECT_THAT(muxer.marks(), ElementsAre(9, 1, 2, 3, 4));
}

TEST_F(OutputStreamTest, WhatFfmpegRefusesOnceMoreIsLetGoWithOneLine) {
    open();
    auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    stream->writePacket(picture(2, 3600));
    EXPECT_THROW(stream->writePacket(picture(3, 3600)), Exception) << "the time does not rise";
    log.clear();
    const int writes = intercepted->av_interleaved_write_frame.count;
    stream.reset();
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4, lossOf(1))));
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, writes + 1) << "tried once more";
    EXPECT_NO_THROW(context->finish());
}

TEST_F(OutputStreamTest, WhatFailedOnceIsWrittenByTheDestructorInOrder) {
    test::MuxerRecord muxer;
    open();
    auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    const auto swallow = intercepted->av_interleaved_write_frame.instead;
    intercepted->av_interleaved_write_frame.instead = [](AVFormatContext*, AVPacket*) {
        return AVERROR(EIO);
    };
    EXPECT_THROW(stream->writePacket(picture(2, 3600)), Exception);
    EXPECT_THROW(stream->writePacket(picture(3, 7200)), Exception);
    intercepted->av_interleaved_write_frame.instead = swallow;
    log.clear();
    stream.reset();
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3));
    EXPECT_THAT(ownLines(log), IsEmpty());
}

TEST_F(OutputStreamTest, OnlyWhatFailsAgainIsLetGo) {
    test::MuxerRecord muxer;
    open();
    auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    const auto swallow = intercepted->av_interleaved_write_frame.instead;
    intercepted->av_interleaved_write_frame.instead = [&](AVFormatContext* to, AVPacket* written) {
        return written->data[0] == 2 ? AVERROR(EINVAL) : swallow(to, written);
    };
    EXPECT_THROW(stream->writePacket(picture(2, 3600)), Exception);
    EXPECT_THROW(stream->writePacket(picture(3, 7200)), Exception) << "the one before stands first";
    log.clear();
    stream.reset();
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 3));
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4, lossOf(1))));
}

// Pauses. 2^31 - 3 ticks: FFmpeg takes fewer than 2^31 - 1, and both ends are rounded.

TEST_F(OutputStreamTest, APauseLongerThanMp4TakesIsRefusedAndTheNextPacketTaken) {
    test::MuxerRecord muxer(test::MuxerRecord::Then::PassOn);
    open();
    auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    const std::string message = "A pause of 23860.929 s is too long for \"" + path +
                                "\": MP4 takes up to 23860.929 s in this stream";
    EXPECT_EQ(thrownText<tio::Exception>([&] { stream->writePacket(picture(2, 2147483646)); }),
              message);
    EXPECT_THAT(ownLines(log),
                ElementsAre(IsLogLine("root", 4, message + placeText("OutputStream", 50)),
                            IsLogLine("root", 4, "Assertion failed: pause <= longest")));
    stream->writePacket(picture(3, 3600));
    stream.reset();
    EXPECT_NO_THROW(context->finish());
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 3));
    EXPECT_THAT(muxer.pts(), ElementsAre(0, 3600));
}

TEST_F(OutputStreamTest, TheLongestPauseIsKeptToTheTick) {
    open();
    auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    // FFmpeg 9.0 does not show a last picture that lasts for no time.
    const auto last = test::makePacket({2}, 2147483645, 2147483645);
    last->duration = 1;
    stream->writePacket(OutputPacket(last.get(), video.get(), ticks));
    stream.reset();
    context->finish();
    EXPECT_EQ(test::readFile(path).ptsOf(0), (std::vector<int64_t>{0, 2147483645}));
}

TEST_F(OutputStreamTest, APauseIsRefusedAlsoWhilePacketsWaitForTheHeader) {
    open();
    auto pictures = makeStream();
    const auto sounds = makeStream();
    pictures->writePacket(picture(1, 0));
    EXPECT_THROW(pictures->writePacket(picture(2, 3000000000)), tio::Exception);
    sounds->writePacket(sound(3, 0));
    pictures.reset(); // and the program lives
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 2);
}

TEST_F(OutputStreamTest, APauseOfSoundIsCountedInSamples) {
    open();
    const auto stream = makeStream();
    stream->writePacket(sound(1, 0));
    // 2^31 - 3 samples at 48000 a second
    EXPECT_THAT(thrownText<tio::Exception>([&] { stream->writePacket(sound(2, 2147483646)); }),
                ::testing::HasSubstr("MP4 takes up to 44739.243 s"));
    EXPECT_NO_THROW(stream->writePacket(sound(3, 2147483645)));
}

TEST_F(OutputStreamTest, ANullContextIsRefused) {
    EXPECT_EQ(thrownText<tio::Exception>([this] { makeStream(); }),
              "An output stream needs a context");
}

} // namespace
} // namespace tio::ffmpeg
