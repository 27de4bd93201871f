#include "OutputStreamFixture.h"
#include "support/Expectations.h"
#include "support/FullDisk.h"
#include "support/Muxing.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>

#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tio::ffmpeg {
namespace {

using test::ffmpegText;
using test::IsLogLine;
using test::OutputStreamDeathTest;
using test::OutputStreamTest;
using test::ownLines;
using test::placeText;
using test::thrownText;
using test::ticks;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Finishing without a packet for one of the streams

TEST_F(OutputStreamTest, FinishingNamesTheStreamThatNeverGotAPacketAndTheLoss) {
    open();
    auto pictures = makeStream();
    auto silent = makeStream(Rational(1, 48000));
    for (int i = 0; i < 100; ++i)
        pictures->writePacket(picture(1, 3600 * i));
    pictures.reset();
    silent.reset();
    EXPECT_EQ(thrownText<tio::Exception>([this] { context->finish(); }),
              "There is no file \"" + path +
                  "\": stream 2 of 2 (time base 1/48000) never got a packet; 100 packets of others "
                  "are lost");
}

TEST_F(OutputStreamTest, FinishingNamesEveryStreamThatNeverGotAPacket) {
    open();
    const auto first = makeStream(Rational(1, 25));
    const auto second = makeStream();
    const auto third = makeStream(Rational(1, 48000));
    second->writePacket(picture(1, 0));
    EXPECT_THAT(thrownText<tio::Exception>([this] { context->finish(); }),
                ::testing::EndsWith("stream 1 of 3 (time base 1/25), stream 3 of 3 (time base "
                                    "1/48000) never got a packet"));
}

TEST_F(OutputStreamTest, APathThatCannotBeOpenedThrowsEveryTimeAndAddsOneStreamOnly) {
    path = badPath;
    open();
    auto stream = makeStream();
    for (uint8_t i = 0; i < 3; ++i)
        EXPECT_EQ(thrownText<Exception>([&] { stream->writePacket(picture(i, 3600 * i)); }),
                  ffmpegText(AVERROR(ENOENT)));
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
    EXPECT_EQ(intercepted->avio_open.count, 1);
    stream.reset();
    context.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 0);
}

TEST_F(OutputStreamTest, WhenTheFileCannotBeOpenedTheOtherStreamsThrowTooAndLetTheirPacketsGo) {
    path = badPath;
    open();
    auto pictures = makeStream();
    auto sounds = makeStream();
    pictures->writePacket(picture(1, 0));
    pictures->writePacket(picture(2, 3600));
    EXPECT_THROW(sounds->writePacket(sound(3, 0)), Exception);
    EXPECT_EQ(thrownText<Exception>([&] { pictures->writePacket(picture(4, 7200)); }),
              ffmpegText(AVERROR(ENOENT)));
    EXPECT_THAT(ownLines(log), IsEmpty());
    pictures.reset();
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4, lossOf(2))));
    sounds.reset();
    context.reset();
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 0);
}

TEST_F(OutputStreamTest, WhenAnotherStreamNeverGetsAPacketTheHeldOnesAreLetGoWithOneLine) {
    open();
    auto pictures = makeStream();
    auto silent = makeStream();
    for (uint8_t i = 0; i < 3; ++i)
        pictures->writePacket(picture(i, 3600 * i));
    pictures.reset();
    silent.reset();
    context.reset();
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4, lossOf(3))));
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 0);
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(OutputStreamTest, WhatAStreamHeldWhenItWentIsWrittenAheadOfTheFirstPacketAfterTheHeader) {
    test::MuxerRecord muxer;
    open();
    auto sounds = makeStream();
    const auto pictures = makeStream();
    sounds->writePacket(sound(1, 0));
    sounds->writePacket(sound(2, 1024));
    sounds.reset();
    EXPECT_THAT(muxer.packets, IsEmpty());
    pictures->writePacket(picture(3, 0));
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3));
    EXPECT_THAT(muxer.all(&test::MuxedPacket::stream), ElementsAre(0, 0, 1));
    EXPECT_THAT(ownLines(log), IsEmpty());
}

TEST_F(OutputStreamTest, WhatAStreamHeldWhenItWentIsLetGoWithOneLineWhenTheHeaderFails) {
    path = badPath;
    open();
    auto sounds = makeStream();
    auto pictures = makeStream();
    sounds->writePacket(sound(1, 0));
    sounds.reset();
    EXPECT_THAT(ownLines(log), IsEmpty());
    EXPECT_THROW(pictures->writePacket(picture(2, 0)), Exception);
    pictures.reset();
    context.reset();
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4, lossOf(1))));
}

TEST_F(OutputStreamTest, ARefusedPacketOfAStreamThatWentStopsTheOthersOnlyOnce) {
    test::MuxerRecord muxer;
    open();
    auto pictures = makeStream();
    const auto sounds = makeStream();
    pictures->writePacket(picture(1, 0));
    pictures->writePacket(picture(2, 3600));
    pictures.reset();
    const auto swallow = intercepted->av_interleaved_write_frame.instead;
    intercepted->av_interleaved_write_frame.instead = [&](AVFormatContext* to, AVPacket* written) {
        return written->data[0] == 1 ? AVERROR(EINVAL) : swallow(to, written);
    };
    EXPECT_EQ(thrownText<Exception>([&] { sounds->writePacket(sound(3, 0)); }),
              ffmpegText(AVERROR(EINVAL)) + placeText("OutputFormatContext", 188));
    sounds->writePacket(sound(4, 1024));
    EXPECT_THAT(muxer.marks(), ElementsAre(2, 3, 4));
}

TEST_F(OutputStreamTest, AStreamWithoutPacketsGoesWithoutAWord) {
    open();
    makeStream();
    EXPECT_THAT(ownLines(log), IsEmpty());
}

TEST_F(OutputStreamTest, AfterAFullDiskThePacketsAreLetGoWithOneLine) {
    const test::FullDisk disk(1000);
    open();
    auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    EXPECT_EQ(
        thrownText<Exception>([&] { stream->writePacket(packet(2, 3600, video, ticks, 100000)); }),
        ffmpegText(AVERROR(ENOSPC)));
    stream.reset();
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4, lossOf(1))));
    context.reset();
}

TEST_F(OutputStreamDeathTest, AFailureInTheDestructorEndsTheProgram) {
    open();
    auto pictures = makeStream();
    const auto sounds = makeStream();
    pictures->writePacket(picture(1, 0));
    sounds->writePacket(sound(2, 0));
    intercepted->av_interleaved_write_frame.instead = [](AVFormatContext*, AVPacket*) {
        return AVERROR(EIO);
    };
    EXPECT_DEATH(pictures.reset(), ffmpegText(AVERROR(EIO)));
    intercepted->av_interleaved_write_frame.instead = nullptr;
}

} // namespace
} // namespace tio::ffmpeg
