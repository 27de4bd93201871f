#include "OutputFormatContextFixture.h"
#include "support/Expectations.h"
#include "support/FullDisk.h"
#include "support/Interception.h"
#include "support/Muxing.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/OutputFormatContext.h>
#include <TARN/videoio/Packet.h>

#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ffmpegText;
using test::IsLogLine;
using test::makePacket;
using test::OutputFormatContextTest;
using test::ownLines;
using test::placeText;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

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
