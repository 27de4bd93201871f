#include "support/Expectations.h"
#include "support/FullDisk.h"
#include "support/KeptPacket.h"
#include "support/Muxing.h"
#include "support/WritingTest.h"
#include "support/WrittenFile.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/OutputStream.h>

#include <cstdint>
#include <deque>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ffmpegText;
using test::IsFraction;
using test::IsLogLine;
using test::makePacket;
using test::ownLines;
using test::placeText;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The tests of what holds packets back use streams that the muxer counts in 1/90000 s.
const Rational ticks(1, 90000);

class OutputStreamTest : public test::WritingTest {
protected:
    std::unique_ptr<OutputStream> makeStream(Rational timeBase = ticks) const {
        return std::make_unique<OutputStream>(context, timeBase);
    }

    OutputPacket packet(uint8_t mark, int64_t pts, const test::Parameters& parameters,
                        Rational timeBase = ticks, size_t size = 1) const {
        const auto made = makePacket(std::vector<uint8_t>(size, mark), pts, pts);
        return OutputPacket(made.get(), parameters.get(), timeBase);
    }
    OutputPacket picture(uint8_t mark, int64_t pts) const { return packet(mark, pts, video); }
    OutputPacket sound(uint8_t mark, int64_t pts) const {
        return packet(mark, pts, audio, Rational(1, 48000));
    }

    test::Parameters video = test::videoParameters();
    test::Parameters audio = test::audioParameters();
};

using OutputStreamDeathTest = OutputStreamTest;

TEST_F(OutputStreamTest, AnnouncesItselfWhenMadeAndAddsItselfWithItsFirstPacket) {
    open();
    const auto first = makeStream();
    const auto second = makeStream();
    EXPECT_EQ(intercepted->avformat_new_stream.count, 0);
    first->writePacket(picture(1, 0));
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
    EXPECT_FALSE(context->readyForPackets()) << "two were announced";
    second->writePacket(picture(2, 0));
    EXPECT_EQ(intercepted->avformat_new_stream.count, 2);
    EXPECT_TRUE(context->readyForPackets());
}

TEST_F(OutputStreamTest, TheHeaderIsWrittenBeforeTheFirstPacketIsHandedOn) {
    open();
    const auto stream = makeStream();
    bool ready = false;
    intercepted->av_interleaved_write_frame.instead = [&](AVFormatContext*, AVPacket* written) {
        ready = context->readyForPackets();
        av_packet_unref(written);
        return 0;
    };
    stream->writePacket(picture(1, 0));
    EXPECT_TRUE(ready);
}

TEST_F(OutputStreamTest, KeepsTheTimeBaseThatItWasGiven) {
    open();
    EXPECT_THAT(makeStream(Rational(1001, 30000))->getUnitTime(), IsFraction(1001, 30000));
}

TEST_F(OutputStreamTest, CannotBeMadeAfterTheHeader) {
    open();
    const auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    EXPECT_EQ(thrownText<tio::Exception>([this] { makeStream(); }),
              "Streams must be made before the header of \"" + path + "\" is written");
}

TEST_F(OutputStreamTest, TheFirstPacketsParametersDecide) {
    open();
    const auto stream = makeStream();
    stream->writePacket(picture(1, 0));
    stream->writePacket(packet(2, 3600, test::videoParameters(640, 480)));
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
    EXPECT_EQ(std::as_const(*stream).getStream()->codecpar->width, 96);
}

TEST_F(OutputStreamTest, RescalesFromThePacketsOwnTimeBaseWhateverTheStreamWasGiven) {
    test::MuxerRecord muxer;
    open();
    const auto stream = makeStream(Rational(1, 1000));
    auto timed = packet(1, 0, video, Rational(1, 25));
    timed.getPacket().duration = 2;
    stream->writePacket(timed);
    stream->writePacket(packet(2, 1, video, Rational(1, 25)));
    stream->writePacket(packet(3, 1, video, Rational(1001, 30000)));
    EXPECT_THAT(muxer.pts(), ElementsAre(0, 3600, 3003));
    EXPECT_THAT(muxer.dts(), ElementsAre(0, 3600, 3003));
    EXPECT_EQ(muxer.packets[0].duration, 7200);
}

TEST_F(OutputStreamTest, PacketsGoToTheirOwnStream) {
    test::MuxerRecord muxer;
    open();
    const auto sounds = makeStream(); // announced first, but added second
    const auto pictures = makeStream();
    pictures->writePacket(picture(1, 0));
    sounds->writePacket(sound(2, 0));
    pictures->writePacket(picture(3, 3600));
    EXPECT_THAT(muxer.marks(), ElementsAre(2, 1, 3));
    EXPECT_THAT(muxer.all(&test::MuxedPacket::stream), ElementsAre(1, 0, 0));
}

TEST_F(OutputStreamTest, LeavesThePacketAsItIs) {
    open();
    const auto stream = makeStream();
    const auto first = picture(1, 700);
    stream->writePacket(first);
    EXPECT_EQ(first.getPacket().pts, 700);
    EXPECT_EQ(first.getPacket().size, 1);
    EXPECT_THAT(first.getUnitTime(), IsFraction(1, 90000));
}

// Holding back

TEST_F(OutputStreamTest, PicturesWaitForTheHeaderAndSoundWaitsForThePictures) {
    test::MuxerRecord muxer;
    open();
    const auto pictures = makeStream();
    const auto sounds = makeStream();
    for (uint8_t i = 0; i < 3; ++i)
        pictures->writePacket(picture(static_cast<uint8_t>(10 + i), 3600 * i));
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
    EXPECT_FALSE(std::filesystem::exists(path));
    sounds->writePacket(sound(20, 0));
    EXPECT_TRUE(context->readyForPackets());
    EXPECT_THAT(muxer.packets, IsEmpty()) << "the context does not know the time origin yet";
    pictures->writePacket(picture(13, 10800));
    EXPECT_THAT(muxer.marks(), ElementsAre(20, 10, 11, 12, 13));
}

TEST_F(OutputStreamTest, TheDestructorWritesWhatIsHeldInOrder) {
    test::MuxerRecord muxer;
    open();
    auto pictures = makeStream();
    const auto sounds = makeStream();
    pictures->writePacket(picture(10, 0));
    pictures->writePacket(picture(11, 3600));
    sounds->writePacket(sound(20, 0));
    EXPECT_THAT(muxer.packets, IsEmpty());
    pictures.reset();
    EXPECT_THAT(muxer.marks(), ElementsAre(20, 10, 11));
    EXPECT_THAT(ownLines(log), IsEmpty());
}

TEST_F(OutputStreamTest, HeldPacketsKeepTheirDataAndParametersOwnerAlive) {
    test::MuxerRecord muxer;
    open();
    const auto pictures = makeStream();
    const auto sounds = makeStream();
    std::weak_ptr<std::vector<uint8_t>> watched;
    {
        const auto bytes = std::make_shared<std::vector<uint8_t>>(4);
        watched = bytes;
        test::KeptPacket kept(picture(10, 0));
        kept.setKeepAlive(bytes);
        pictures->writePacket(kept);
    }
    EXPECT_FALSE(watched.expired());
    sounds->writePacket(sound(20, 0));
    pictures->writePacket(picture(11, 3600));
    EXPECT_TRUE(watched.expired()) << "nothing is kept once it is written";
    EXPECT_THAT(muxer.marks(), ElementsAre(20, 10, 11));
}

TEST_F(OutputStreamTest, TheTrailerFollowsTheLastStreamThatHoldsTheContext) {
    open();
    auto pictures = makeStream();
    pictures->writePacket(picture(10, 0));
    context.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    pictures.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 1);
}

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
    stream->writePacket(picture(2, 2147483645));
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

// What is there for the other classes of the wing alone

#define IS_PUBLIC(name, call)                                                                      \
    template <typename T, typename = void>                                                         \
    struct name : std::false_type {};                                                              \
    template <typename T>                                                                          \
    struct name<T, std::void_t<decltype(call)>> : std::true_type {}

IS_PUBLIC(HasFailedIsPublic, std::declval<const T&>().hasFailed());
IS_PUBLIC(RethrowIsPublic, std::declval<const T&>().rethrowFailure());
IS_PUBLIC(LetGoIsPublic, std::declval<const T&>().letGo(1));
IS_PUBLIC(AdoptIsPublic, std::declval<T&>().adopt(0, std::deque<OutputPacket>()));
IS_PUBLIC(WriteLastIsPublic, std::declval<T&>().writeLast(std::vector<OutputPacket>()));
IS_PUBLIC(SetKeepAliveIsPublic, std::declval<T&>().setKeepAlive(nullptr));
IS_PUBLIC(AddStreamIsPublic, std::declval<T&>().addStream(nullptr));

TEST(WritingInterfaceTest, PlumbingIsNotPublic) {
    EXPECT_FALSE(HasFailedIsPublic<OutputFormatContext>::value);
    EXPECT_FALSE(RethrowIsPublic<OutputFormatContext>::value);
    EXPECT_FALSE(LetGoIsPublic<OutputFormatContext>::value);
    EXPECT_FALSE(AdoptIsPublic<OutputFormatContext>::value);
    EXPECT_FALSE(WriteLastIsPublic<OutputStream>::value);
    EXPECT_FALSE(SetKeepAliveIsPublic<OutputPacket>::value);
    EXPECT_TRUE(AddStreamIsPublic<OutputFormatContext>::value)
        << "the question can be answered yes";
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
