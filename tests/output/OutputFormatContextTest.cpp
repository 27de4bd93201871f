#include "OutputFormatContextFixture.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/Muxing.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/OutputFormatContext.h>
#include <TARN/videoio/Packet.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace tio::ffmpeg {
namespace {

using test::ffmpegText;
using test::IsLogLine;
using test::OutputFormatContextTest;
using test::ownLines;
using test::placeText;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

} // namespace
} // namespace tio::ffmpeg
