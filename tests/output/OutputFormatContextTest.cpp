#include "support/Expectations.h"
#include "support/FullDisk.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Muxing.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/OutputFormatContext.h>
#include <TARN/videoio/Packet.h>

#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ffmpegText;
using test::IsLogLine;
using test::makePacket;
using test::ownLines;
using test::placeText;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

class OutputFormatContextTest : public ::testing::Test {
protected:
    void open(int expectedStreams) {
        context = std::make_shared<OutputFormatContext>(path);
        for (int i = 0; i < expectedStreams; ++i)
            context->addExpectedStream();
    }

    // Opens the file with these streams. The muxer counts video in 1/90000 s and audio in one over
    // its sample rate, unless a stream has a time base.
    void openWith(const std::vector<test::Parameters>& streams) {
        open(static_cast<int>(streams.size()));
        for (const auto& parameters : streams)
            context->addStream(parameters.get());
    }

    // Writes a packet whose payload is its mark.
    void write(int stream, uint8_t mark, int64_t pts, int64_t dts) const {
        const auto packet = makePacket({mark}, pts, dts);
        packet->stream_index = stream;
        context->writePacket(*packet);
    }
    void write(int stream, uint8_t mark, int64_t pts) const { write(stream, mark, pts, pts); }

    // Runs `action`, which must throw FFmpeg's text for `code` with the place `number`.
    template <typename Action>
    void expectFailure(int code, int number, Action action) const {
        const std::string expected = ffmpegText(code) + placeText("OutputFormatContext", number);
        EXPECT_EQ(thrownText<Exception>(action), expected);
        EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 5, expected)));
    }

    [[nodiscard]] bool fileExists() const { return std::filesystem::exists(path); }

    test::TemporaryFolder folder;
    std::string path = folder.file("out.mp4");
    test::Interception intercepted;
    test::LogCapture log;
    std::shared_ptr<OutputFormatContext> context;
};

TEST_F(OutputFormatContextTest, OpensNoFileWhenMade) {
    open(1);
    EXPECT_EQ(intercepted->avio_open.count, 0);
    EXPECT_FALSE(fileExists());
    EXPECT_FALSE(context->readyForPackets());
    EXPECT_EQ(context->getPath(), path);
}

TEST_F(OutputFormatContextTest, AsksForMp4WithoutTellingFfmpegTheName) {
    std::string format;
    const char* name = "a name";
    intercepted->avformat_alloc_output_context2.instead = [&](AVFormatContext** made,
                                                              const char* asked, const char* file) {
        format = asked;
        name = file;
        return test::real::allocateOutput(made, asked, file);
    };
    path = folder.file("out.avi");
    open(1);
    EXPECT_EQ(format, "mp4");
    EXPECT_EQ(name, nullptr);
}

TEST_F(OutputFormatContextTest, ThrowsWithoutAnMp4Muxer) {
    intercepted->avformat_alloc_output_context2.instead =
        [](AVFormatContext**, const char*, const char*) { return AVERROR_MUXER_NOT_FOUND; };
    expectFailure(AVERROR_MUXER_NOT_FOUND, 40, [this] { open(0); });
}

TEST_F(OutputFormatContextTest, Mp4KeepsCodecParametersInItsHeader) {
    open(1);
    EXPECT_TRUE(context->formatHasGlobalHeaders());
}

// Adding streams

TEST_F(OutputFormatContextTest, AStreamsIndexAndIdAreItsPosition) {
    open(3);
    EXPECT_EQ(context->addStream(test::videoParameters().get()), 0);
    EXPECT_EQ(context->addStream(test::audioParameters().get()), 1);
    EXPECT_EQ(context->getStream(0)->id, 0);
    EXPECT_EQ(context->getStream(1)->id, 1);
}

TEST_F(OutputFormatContextTest, HintsAtTheCodecsDecoder) {
    const AVCodec* hint = nullptr;
    intercepted->avformat_new_stream.instead = [&](AVFormatContext* output, const AVCodec* codec) {
        hint = codec;
        return test::real::newStream(output, codec);
    };
    open(2);
    context->addStream(test::audioParameters().get());
    ASSERT_NE(hint, nullptr);
    EXPECT_EQ(hint, avcodec_find_decoder(AV_CODEC_ID_AAC));
    EXPECT_TRUE(av_codec_is_decoder(hint));
}

TEST_F(OutputFormatContextTest, CopiesTheParametersWithoutTheirTag) {
    open(2);
    const auto parameters = test::videoParameters(320, 240);
    parameters->codec_tag = MKTAG('X', 'V', 'I', 'D');
    context->addStream(parameters.get());
    const AVCodecParameters& copied = *context->getStream(0)->codecpar;
    EXPECT_EQ(copied.codec_id, AV_CODEC_ID_MPEG4);
    EXPECT_EQ(copied.width, 320);
    EXPECT_EQ(copied.height, 240);
    EXPECT_EQ(copied.codec_tag, 0u);
    EXPECT_EQ(parameters->codec_tag, MKTAG('X', 'V', 'I', 'D')) << "the caller's stay as they are";
}

TEST_F(OutputFormatContextTest, WritesTheHeaderWithTheLastAnnouncedStream) {
    open(3);
    for (int added = 1; added <= 2; ++added) {
        context->addStream(test::videoParameters().get());
        EXPECT_FALSE(context->readyForPackets()) << added;
        EXPECT_FALSE(fileExists()) << added;
    }
    context->addStream(test::audioParameters().get());
    EXPECT_TRUE(context->readyForPackets());
    EXPECT_TRUE(fileExists());
    EXPECT_EQ(intercepted->avio_open.count, 1);
    EXPECT_EQ(intercepted->avformat_write_header.count, 1);
}

TEST_F(OutputFormatContextTest, AnAnnouncementBetweenTwoStreamsStillCounts) {
    open(2);
    context->addStream(test::videoParameters().get());
    context->addExpectedStream();
    context->addStream(test::audioParameters().get());
    EXPECT_FALSE(context->readyForPackets()) << "index 1 is not three minus one";
    context->addStream(test::audioParameters().get());
    EXPECT_TRUE(context->readyForPackets()) << "index 2 is";
}

TEST_F(OutputFormatContextTest, GoesByTheIndexAndNotByWhetherEnoughStreamsAreThere) {
    open(0);
    context->addStream(test::videoParameters().get()); // index 0, none announced
    context->addExpectedStream();
    context->addStream(test::audioParameters().get()); // index 1, one announced
    EXPECT_FALSE(context->readyForPackets());
    EXPECT_FALSE(fileExists());
}

TEST_F(OutputFormatContextTest, OpensTheFileForWritingAndGivesTheMuxerNoOptions) {
    int flags = 0;
    AVDictionary** options = nullptr;
    intercepted->avio_open.instead = [&](AVIOContext** file, const char* name, int asked) {
        EXPECT_EQ(name, path);
        flags = asked;
        return test::real::openFile(file, name, asked);
    };
    intercepted->avformat_write_header.instead = [&](AVFormatContext*, AVDictionary** given) {
        options = given;
        return AVERROR(EINVAL);
    };
    EXPECT_THROW(openWith({test::videoParameters()}), Exception);
    EXPECT_EQ(flags, AVIO_FLAG_WRITE);
    EXPECT_EQ(options, nullptr);
}

TEST_F(OutputFormatContextTest, ThrowsWhenFfmpegAddsNoStream) {
    intercepted->avformat_new_stream.instead = [](AVFormatContext*, const AVCodec*) {
        return static_cast<AVStream*>(nullptr);
    };
    open(1);
    EXPECT_EQ(
        thrownText<tio::Exception>([this] { context->addStream(test::videoParameters().get()); }),
        "Could not add stream to output");
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4,
                                                     "Could not add stream to output" +
                                                         placeText("OutputFormatContext", 75))));
}

TEST_F(OutputFormatContextTest, ThrowsWithoutParametersAndAddsNothing) {
    open(1);
    EXPECT_EQ(thrownText<tio::Exception>([this] { context->addStream(nullptr); }),
              "A stream of \"" + path + "\" needs codec parameters");
    EXPECT_EQ(context->addStream(test::videoParameters().get()), 0);
}

TEST_F(OutputFormatContextTest, ThrowsWhenTheParametersCannotBeCopied) {
    intercepted->avcodec_parameters_copy.instead =
        [](AVCodecParameters*, const AVCodecParameters*) { return AVERROR(ENOMEM); };
    open(1);
    expectFailure(AVERROR(ENOMEM), 90,
                  [this] { context->addStream(test::videoParameters().get()); });
    EXPECT_FALSE(fileExists());
}

TEST_F(OutputFormatContextTest, AStreamWhoseParametersCannotBeCopiedIsNotAddedTwice) {
    open(1);
    intercepted->avcodec_parameters_copy.instead =
        [](AVCodecParameters*, const AVCodecParameters*) { return AVERROR(ENOMEM); };
    const auto parameters = test::videoParameters();
    expectFailure(AVERROR(ENOMEM), 90, [&] { context->addStream(parameters.get()); });
    intercepted->avcodec_parameters_copy.instead = nullptr;
    EXPECT_THROW(context->addStream(parameters.get()), Exception);
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
}

TEST_F(OutputFormatContextTest, NoStreamCanBeAnnouncedOrAddedAfterTheHeader) {
    openWith({test::videoParameters()});
    const std::string message =
        "Streams must be made before the header of \"" + path + "\" is written";
    EXPECT_EQ(thrownText<tio::Exception>([this] { context->addExpectedStream(); }), message);
    EXPECT_THAT(ownLines(log),
                ElementsAre(IsLogLine("root", 4, message + placeText("OutputFormatContext", 64)),
                            IsLogLine("root", 4, "Assertion failed: initializationState")));
    EXPECT_EQ(
        thrownText<tio::Exception>([this] { context->addStream(test::videoParameters().get()); }),
        "Could not add stream to output");
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
}

// A header that fails

TEST_F(OutputFormatContextTest, APathThatCannotBeOpenedGivesFfmpegsWordsAloneAndNoLogLine) {
    path = folder.file("no such folder/out.mp4");
    EXPECT_EQ(thrownText<Exception>([this] { openWith({test::videoParameters()}); }),
              ffmpegText(AVERROR(ENOENT)));
    EXPECT_THAT(ownLines(log), IsEmpty());
    EXPECT_FALSE(context->readyForPackets());
}

TEST_F(OutputFormatContextTest, AnotherFailureOfOpeningTellsThePlace) {
    intercepted->avio_open.instead = [](AVIOContext**, const char*, int) {
        return AVERROR_PROTOCOL_NOT_FOUND;
    };
    expectFailure(AVERROR_PROTOCOL_NOT_FOUND, 51, [this] { openWith({test::videoParameters()}); });
    EXPECT_FALSE(context->readyForPackets());
}

TEST_F(OutputFormatContextTest, ACodecThatMp4DoesNotHoldFailsInTheHeader) {
    const auto raw = test::videoParameters();
    raw->codec_id = AV_CODEC_ID_FFVHUFF;
    expectFailure(AVERROR(EINVAL), 56, [&] { openWith({raw}); });
    EXPECT_FALSE(context->readyForPackets());
}

TEST_F(OutputFormatContextTest, AfterAFailedHeaderEveryCallFailsAlikeAndAddsNothing) {
    path = folder.file("no such folder/out.mp4");
    EXPECT_THROW(openWith({test::videoParameters()}), Exception);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(
            thrownText<Exception>([this] { context->addStream(test::videoParameters().get()); }),
            ffmpegText(AVERROR(ENOENT)));
        EXPECT_EQ(thrownText<Exception>([this] { context->finish(); }),
                  ffmpegText(AVERROR(ENOENT)));
    }
    EXPECT_EQ(intercepted->avformat_new_stream.count, 1);
    EXPECT_EQ(intercepted->avio_open.count, 1);
}

// The time origin

TEST_F(OutputFormatContextTest, TheFirstPacketOfTheReferenceStreamIsTimeZero) {
    test::MuxerRecord muxer;
    openWith({test::videoParameters()});
    write(0, 1, 9000, 6000);
    write(0, 2, 12600, 9600);
    EXPECT_THAT(muxer.pts(), ElementsAre(0, 3600));
    EXPECT_THAT(muxer.dts(), ElementsAre(-3000, 600));
}

TEST_F(OutputFormatContextTest, HoldsOtherStreamsUntilTheFirstVideoPacketThenWritesInOrder) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(), test::audioParameters(), test::videoParameters()});
    write(1, 1, 500);
    write(0, 2, 100);
    write(1, 3, 1524);
    EXPECT_THAT(muxer.packets, IsEmpty());
    write(2, 4, 0);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3, 4));
    write(0, 5, 1124);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3, 4, 5)) << "no longer held";
}

TEST_F(OutputFormatContextTest, ShiftsAreExactFractionsTruncatedTowardZero) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(44100), test::videoParameters()});
    ASSERT_EQ(Rational(context->getStream(0)->time_base), Rational(1, 44100));
    ASSERT_EQ(Rational(context->getStream(1)->time_base), Rational(1, 90000));
    write(0, 1, 0);
    write(0, 2, 1024);
    // -101 / 90000 × 44100 = -49.49: toward zero -49, where rounding down would give -50.
    write(1, 3, 101);
    EXPECT_THAT(muxer.pts(), ElementsAre(-49, 975, 0));
    EXPECT_THAT(muxer.dts(), ElementsAre(-49, 975, 0));
}

// 1700000000 s + 1/7 s: times the clock of the other stream, the ticks leave 64 bits.
TEST_F(OutputFormatContextTest, ShiftsOfWallClockTimesAreExact) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(96000), test::videoParameters()});
    context->getStream(1)->time_base = {7, 15360000}; // as no muxer would count
    const int64_t second = int64_t{96000} * 1700000000;
    write(0, 1, second);
    write(1, 2, 3730285714288653); // 1700000000.0013394 s
    // -3730285714288653 * 7 / 15360000 * 96000 = -163200000000128.57
    EXPECT_THAT(muxer.pts(), ElementsAre(-128, 0));
}

TEST_F(OutputFormatContextTest, AShiftSmallerThanOneTickIsNone) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(44100), test::videoParameters()});
    write(0, 1, 700);
    write(1, 2, 1); // -1 / 90000 × 44100 = -0.49
    EXPECT_THAT(muxer.pts(), ElementsAre(700, 0));
}

TEST_F(OutputFormatContextTest, AFileThatStartsBelowZeroIsShiftedUpLikewise) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(44100), test::videoParameters()});
    write(0, 1, -1024);
    write(1, 2, -101); // 101 / 90000 × 44100 = 49.49
    EXPECT_THAT(muxer.pts(), ElementsAre(-975, 0));
}

TEST_F(OutputFormatContextTest, AudioBeforeTheFirstPictureBecomesNegativeAndIsKept) {
    test::MuxerRecord muxer(test::MuxerRecord::Then::PassOn);
    openWith({test::audioParameters(), test::videoParameters()});
    write(0, 1, 0);
    write(0, 2, 1024);
    write(1, 3, 3600); // 40 ms, which are 1920 samples
    EXPECT_THAT(muxer.pts(), ElementsAre(-1920, -896, 0));
}

TEST_F(OutputFormatContextTest, TheFirstVideoStreamIsTheReferenceWhereverItIsAdded) {
    test::MuxerRecord muxer;
    openWith({test::textParameters(), test::audioParameters(), test::videoParameters(),
              test::videoParameters()});
    write(3, 1, 90000);
    write(1, 2, 48000);
    write(0, 3, 0);
    EXPECT_THAT(muxer.packets, IsEmpty());
    write(2, 4, 45000);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(muxer.pts(), ElementsAre(45000, 24000, ::testing::Lt(0), 0));
}

TEST_F(OutputFormatContextTest, WithoutVideoTheFirstAudioStreamIsTheReference) {
    test::MuxerRecord muxer;
    openWith({test::textParameters(), test::audioParameters(), test::audioParameters()});
    write(0, 1, 0);
    write(2, 2, 0);
    EXPECT_THAT(muxer.packets, IsEmpty());
    write(1, 3, -1024);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3));
    EXPECT_EQ(muxer.packets[1].pts, 1024);
    EXPECT_EQ(muxer.packets[2].pts, 0);
}

TEST_F(OutputFormatContextTest, WithNeitherVideoNorAudioStreamZeroIsTheReference) {
    test::MuxerRecord muxer;
    openWith({test::textParameters(), test::textParameters()});
    write(1, 1, 10);
    EXPECT_THAT(muxer.packets, IsEmpty());
    write(0, 2, 4);
    EXPECT_THAT(muxer.pts(), ElementsAre(6, 0));
}

TEST_F(OutputFormatContextTest, AReferencePacketWithoutATimeFlushesButLeavesTheOriginUnknown) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(), test::videoParameters()});
    write(0, 1, 0);
    write(1, 2, AV_NOPTS_VALUE);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2)) << "what was held is written all the same";
    write(0, 3, 4800);
    EXPECT_THAT(muxer.packets, SizeIs(2)) << "held again";
    write(1, 4, 9000);
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(muxer.packets[2].pts, 0);
    EXPECT_EQ(muxer.packets[3].pts, 0);
}

TEST_F(OutputFormatContextTest, AnUnknownTimeIsShiftedWithoutOverflow) {
    test::MuxerRecord muxer;
    openWith({test::videoParameters()});
    write(0, 1, 100);
    write(0, 2, 3700, AV_NOPTS_VALUE);
    // The smallest integer less 100 wraps around to the largest less 99.
    EXPECT_EQ(muxer.packets[1].pts, 3600);
    EXPECT_EQ(muxer.packets[1].dts, std::numeric_limits<int64_t>::max() - 99);
}

TEST_F(OutputFormatContextTest, TheLargestTimesAreShiftedWithoutOverflow) {
    test::MuxerRecord muxer;
    openWith({test::videoParameters()});
    write(0, 1, -100);
    write(0, 2, std::numeric_limits<int64_t>::max());
    EXPECT_EQ(muxer.packets[1].pts, std::numeric_limits<int64_t>::min() + 99);
}

// A failure among the packets that wait

TEST_F(OutputFormatContextTest, AHeldPacketThatIsRefusedDoesNotTakeTheOthersAlong) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(), test::videoParameters()});
    for (uint8_t i = 1; i <= 3; ++i)
        write(0, i, 1024 * i);
    const auto swallow = intercepted->av_interleaved_write_frame.instead;
    intercepted->av_interleaved_write_frame.instead = [&](AVFormatContext* to, AVPacket* written) {
        return written->data[0] == 2 ? AVERROR(EINVAL) : swallow(to, written);
    };
    expectFailure(AVERROR(EINVAL), 188, [this] { write(1, 4, 0); });
    EXPECT_THAT(muxer.marks(), ElementsAre(1));
    write(1, 4, 0); // the caller has kept it
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 3, 4));
}

// Whose data it is

TEST_F(OutputFormatContextTest, APacketThatIsWrittenAtOnceIsBlankAfterwards) {
    openWith({test::videoParameters()});
    write(0, 1, 0);
    const auto packet = makePacket({2}, 3600, 3600);
    packet->stream_index = 0;
    context->writePacket(*packet);
    EXPECT_EQ(packet->data, nullptr);
    EXPECT_EQ(packet->size, 0);
}

TEST_F(OutputFormatContextTest, AHeldPacketSharesItsDataAndLetsGoOfThemWhenWritten) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(), test::videoParameters()});
    const auto packet = makePacket({1});
    context->writePacket(*packet);
    EXPECT_EQ(av_buffer_get_ref_count(packet->buf), 2) << "held by reference, the caller's is left";
    write(1, 2, 0);
    EXPECT_EQ(av_buffer_get_ref_count(packet->buf), 1);
}

TEST_F(OutputFormatContextTest, ThrowsWhenAPacketCannotBeHeld) {
    openWith({test::videoParameters()});
    intercepted->av_packet_ref.instead = [](AVPacket*, const AVPacket*) { return AVERROR(ENOMEM); };
    expectFailure(AVERROR(ENOMEM), 135, [this] { write(0, 1, 0); });
}

TEST_F(OutputFormatContextTest, APacketThatCouldNotBeHeldIsNotWrittenWithTheNext) {
    test::MuxerRecord muxer;
    openWith({test::videoParameters()});
    intercepted->av_packet_ref.instead = [](AVPacket*, const AVPacket*) { return AVERROR(ENOMEM); };
    expectFailure(AVERROR(ENOMEM), 135, [this] { write(0, 1, 0); });
    intercepted->av_packet_ref.instead = nullptr;
    write(0, 1, 0);
    EXPECT_EQ(intercepted->av_interleaved_write_frame.count, 1);
}

TEST_F(OutputFormatContextTest, ThrowsWhenThePacketCannotBeWritten) {
    openWith({test::videoParameters()});
    intercepted->av_interleaved_write_frame.instead = [](AVFormatContext*, AVPacket* packet) {
        av_packet_unref(packet);
        return AVERROR(EIO);
    };
    expectFailure(AVERROR(EIO), 188, [this] { write(0, 1, 0); });
}

TEST_F(OutputFormatContextTest, ATimeThatDoesNotRiseIsRefusedAndWritingGoesOn) {
    test::MuxerRecord muxer(test::MuxerRecord::Then::PassOn);
    openWith({test::videoParameters()});
    write(0, 1, 0);
    write(0, 2, 3600);
    expectFailure(AVERROR(EINVAL), 188, [this] { write(0, 3, 3600); });
    EXPECT_NO_THROW(write(0, 4, 7200));
    EXPECT_NO_THROW(context->finish());
}

// The end

TEST_F(OutputFormatContextTest, WithoutAHeaderThereIsNoTrailerAndNoFile) {
    open(1);
    context.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    EXPECT_EQ(intercepted->avio_closep.count, 1);
    EXPECT_EQ(intercepted->avformat_free_context.count, 1);
    EXPECT_FALSE(fileExists());
}

TEST_F(OutputFormatContextTest, AfterAFailedHeaderThereIsNoTrailer) {
    const auto raw = test::videoParameters();
    raw->codec_id = AV_CODEC_ID_FFVHUFF;
    EXPECT_THROW(openWith({raw}), Exception);
    context.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    EXPECT_EQ(intercepted->avio_closep.count, 1);
    EXPECT_EQ(intercepted->avformat_free_context.count, 1);
}

TEST_F(OutputFormatContextTest, WritesTheTrailerThenClosesThenFrees) {
    std::vector<std::string> steps;
    intercepted->av_write_trailer.instead = [&](AVFormatContext* output) {
        steps.emplace_back("trailer");
        return test::real::writeTrailer(output);
    };
    intercepted->avio_closep.instead = [&](AVIOContext** file) {
        steps.emplace_back("close");
        return test::real::closeFile(file);
    };
    intercepted->avformat_free_context.instead = [&](AVFormatContext* output) {
        steps.emplace_back("free");
        test::real::freeContext(output);
    };
    openWith({test::videoParameters()});
    context.reset();
    EXPECT_THAT(steps, ElementsAre("trailer", "close", "free"));
}

TEST_F(OutputFormatContextTest, TheDestructorSaysNothingOfATrailerThatFails) {
    openWith({test::videoParameters()});
    intercepted->av_write_trailer.instead = [](AVFormatContext*) { return AVERROR(EIO); };
    context.reset();
    EXPECT_THAT(ownLines(log), IsEmpty());
    EXPECT_EQ(intercepted->avio_closep.count, 1);
}

TEST_F(OutputFormatContextTest, PacketsHeldAtTheEndAreNeitherWrittenNorReleased) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(), test::videoParameters()});
    AVBufferRef* held = nullptr; // the library leaves it to nobody
    intercepted->av_packet_ref.instead = [&](AVPacket* target, const AVPacket* source) {
        const int result = test::real::reference(target, source);
        held = target->buf;
        return result;
    };
    const auto packet = makePacket({1});
    context->writePacket(*packet);
    context.reset();
    EXPECT_THAT(muxer.packets, IsEmpty());
    EXPECT_EQ(av_buffer_get_ref_count(packet->buf), 2);
    av_buffer_unref(&held);
}

TEST_F(OutputFormatContextTest, FinishingCompletesTheFileWhileTheContextLives) {
    openWith({test::videoParameters()});
    write(0, 1, 0);
    context->finish();
    EXPECT_EQ(intercepted->av_write_trailer.count, 1);
    EXPECT_EQ(intercepted->avio_closep.count, 1);
    const auto size = std::filesystem::file_size(path);
    context.reset();
    EXPECT_EQ(std::filesystem::file_size(path), size) << "nothing is left to be written";
}

TEST_F(OutputFormatContextTest, FinishingTwiceOrBeforeTheDestructorWritesOneTrailer) {
    openWith({test::videoParameters()});
    context->finish();
    context->finish();
    context.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 1);
}

TEST_F(OutputFormatContextTest, FinishingThrowsWhenAnAnnouncedStreamWasNeverAdded) {
    open(2);
    context->addStream(test::videoParameters().get());
    const std::string message =
        "There is no file \"" + path + "\": of 2 streams that were announced, only 1 were added";
    EXPECT_EQ(thrownText<tio::Exception>([this] { context->finish(); }), message);
    EXPECT_THAT(ownLines(log),
                ElementsAre(IsLogLine("root", 4, message + placeText("OutputFormatContext", 202)),
                            IsLogLine("root", 4, "Assertion failed: readyForPackets()")));
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    EXPECT_FALSE(fileExists());
    context->addStream(test::audioParameters().get());
    EXPECT_NO_THROW(context->finish()) << "nothing was changed by the first attempt";
}

TEST_F(OutputFormatContextTest, FinishingThrowsWhenNoStreamWasAnnounced) {
    open(0);
    EXPECT_EQ(thrownText<tio::Exception>([this] { context->finish(); }),
              "There is no file \"" + path + "\": no stream was made for it");
}

TEST_F(OutputFormatContextTest, FinishingThrowsWhilePacketsWaitForTheReferenceStream) {
    test::MuxerRecord muxer;
    openWith({test::audioParameters(), test::videoParameters()});
    write(0, 1, 0);
    write(0, 2, 1024);
    EXPECT_EQ(thrownText<tio::Exception>([this] { context->finish(); }),
              "2 packets of \"" + path + "\" wait for the first packet of stream 1");
    EXPECT_EQ(intercepted->av_write_trailer.count, 0);
    write(1, 3, 0);
    EXPECT_NO_THROW(context->finish());
    EXPECT_THAT(muxer.marks(), ElementsAre(1, 2, 3));
}

TEST_F(OutputFormatContextTest, FinishingReportsATrailerThatFailsAndDoesNotTryAgain) {
    openWith({test::videoParameters()});
    intercepted->av_write_trailer.instead = [](AVFormatContext*) { return AVERROR(EIO); };
    const std::string expected = ffmpegText(AVERROR(EIO)) + ": " + path;
    EXPECT_EQ(thrownText<Exception>([this] { context->finish(); }),
              expected + placeText("OutputFormatContext", 204));
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine(
                                   "root", 5, expected + placeText("OutputFormatContext", 204))));
    context.reset();
    EXPECT_EQ(intercepted->av_write_trailer.count, 1);
}

TEST_F(OutputFormatContextTest, FinishingReportsAFileThatCannotBeClosed) {
    openWith({test::videoParameters()});
    intercepted->avio_closep.instead = [](AVIOContext** file) {
        test::real::closeFile(file);
        return AVERROR(EIO);
    };
    EXPECT_EQ(thrownText<Exception>([this] { context->finish(); }),
              ffmpegText(AVERROR(EIO)) + ": " + path + placeText("OutputFormatContext", 205));
}

// A disk that is full: what it answers is the caller's business, so it is not logged.

TEST_F(OutputFormatContextTest, AHeaderThatDoesNotFitOnTheDiskThrowsFfmpegsWordsAlone) {
    const test::FullDisk disk(0);
    EXPECT_EQ(thrownText<Exception>([this] { openWith({test::videoParameters()}); }),
              ffmpegText(AVERROR(ENOSPC)));
    EXPECT_THAT(ownLines(log), IsEmpty());
    context.reset(); // and the program lives
}

TEST_F(OutputFormatContextTest, APacketThatDoesNotFitOnTheDiskThrowsFfmpegsWordsAlone) {
    const test::FullDisk disk(1000);
    openWith({test::videoParameters()});
    const auto packet = makePacket(std::vector<uint8_t>(100000));
    EXPECT_EQ(thrownText<Exception>([&] { context->writePacket(*packet); }),
              ffmpegText(AVERROR(ENOSPC)));
    EXPECT_THAT(ownLines(log), IsEmpty());
    context.reset();
}

TEST_F(OutputFormatContextTest, FinishingReportsATrailerThatDoesNotFitOnTheDisk) {
    const test::FullDisk disk(200);
    openWith({test::videoParameters()});
    write(0, 1, 0);
    EXPECT_EQ(thrownText<Exception>([this] { context->finish(); }),
              ffmpegText(AVERROR(ENOSPC)) + ": " + path);
    EXPECT_THAT(ownLines(log), IsEmpty());
    context.reset();
}

TEST_F(OutputFormatContextTest, TheSystemsOwnFullDeviceIsReportedToo) {
    path = "/dev/full";
    if (!std::filesystem::exists(path))
        GTEST_SKIP() << "this system has no /dev/full";
    EXPECT_THAT(thrownText<Exception>([this] {
                    openWith({test::videoParameters()});
                    write(0, 1, 0);
                    context->finish();
                }),
                StartsWith(ffmpegText(AVERROR(ENOSPC))));
}

} // namespace
} // namespace tio::ffmpeg
