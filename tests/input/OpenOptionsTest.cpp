#include "base/handles.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/LoopbackServer.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/InputStream.h>

#include <chrono>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <thread>

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
}

namespace tio::ffmpeg {
namespace {

using namespace std::chrono_literals;
using test::ClipPlan;
using test::Connection;
using test::LoopbackServer;
using test::thrownText;
using ::testing::IsSupersetOf;
using ::testing::Pair;
using Kind = EndReason::Kind;

class OpenOptionsTest : public ::testing::Test {
protected:
    std::string clip(const std::string& name, ClipPlan plan = {}) {
        const std::string path = folder.file(name);
        test::makeClip(path, plan);
        return path;
    }

    std::string transportStream() {
        ClipPlan plan;
        plan.format = "mpegts";
        plan.frameCount = 100;
        std::ifstream file(clip("clip.ts", plan), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // Reads on; returns how many packets came.
    int readToEnd(InputFormatContext& input) {
        int count = 0;
        for (; input.getNextPacketForStream(packet.get(), 0); ++count)
            av_packet_unref(packet.get());
        return count;
    }

    test::TemporaryFolder folder;
    test::Interception intercepted;
    test::LogCapture log;
    OpenOptions options;
    detail::PacketHandle packet{av_packet_alloc()};
};

const auto waitForClose = [](const Connection& connection) { connection.waitForClose(); };

TEST_F(OpenOptionsTest, TheDefaultsReadAClipLikeThePlainConstructor) {
    const std::string path = clip("clip.mp4");
    InputFormatContext plain(path);
    InputFormatContext withOptions(path, options);
    EXPECT_EQ(readToEnd(withOptions), readToEnd(plain));
    EXPECT_EQ(withOptions.getContainerName(), plain.getContainerName());
}

TEST_F(OpenOptionsTest, ThePlainConstructorHandsFfmpegNoContext) {
    const AVFormatContext* handed = nullptr;
    intercepted->avformat_open_input.instead = [&](AVFormatContext** context, const char*,
                                                   AVDictionary**) {
        handed = *context;
        return AVERROR_EOF;
    };
    EXPECT_THROW(InputFormatContext("clip.mp4"), Exception);
    EXPECT_EQ(handed, nullptr);
}

TEST_F(OpenOptionsTest, AMissingFileIsToldAsWithoutOptions) {
    const std::string path = folder.file("none.mp4");
    EXPECT_EQ(thrownText<Exception>([&] { InputFormatContext(path, options); }),
              "No such file or directory: " + path);
}

/// The code of what opening throws.
int codeOfOpening(const std::string& url, const OpenOptions& options) {
    try {
        InputFormatContext input(url, options);
    } catch (const Exception& failure) {
        return failure.code();
    }
    ADD_FAILURE() << url << " was opened";
    return 0;
}

TEST_F(OpenOptionsTest, AFailureCarriesTheCodeOfFfmpeg) {
    const std::string noise = folder.file("noise.bin");
    std::ofstream(noise) << std::string(4096, 'x');
    EXPECT_EQ(codeOfOpening(folder.file("none.mp4"), options), AVERROR(ENOENT));
    EXPECT_EQ(codeOfOpening(folder.path().string(), options), AVERROR(EISDIR));
    EXPECT_EQ(codeOfOpening(noise, options), AVERROR_INVALIDDATA);
}

TEST_F(OpenOptionsTest, ATimeLimitBeyondTheClockIsNone) {
    test::makeClip(folder.file("clip.mp4"), {});
    options.openTimeout = std::chrono::milliseconds::max();
    options.readTimeout = std::chrono::milliseconds::max();
    EXPECT_NO_THROW(InputFormatContext(folder.file("clip.mp4"), options));
}

TEST_F(OpenOptionsTest, ATimeLimitAndCancellingAreToldApartByTheirCodes) {
    const LoopbackServer server(waitForClose);
    options.openTimeout = 100ms;
    EXPECT_EQ(codeOfOpening(server.url("rtsp"), options), AVERROR(ETIMEDOUT));
    options.cancelToken.cancel();
    EXPECT_EQ(codeOfOpening(server.url("rtsp"), options), AVERROR_EXIT);
}

TEST_F(OpenOptionsTest, WhatIsNoFailureOfFfmpegHasNoCode) {
    EXPECT_EQ(Exception("words").code(), 0);
    EXPECT_FALSE(Exception("words").isTimeout());
    EXPECT_FALSE(Exception("words").isCancelled());
}

// Settings

TEST_F(OpenOptionsTest, OptionsReachTheDemuxerOnTopOfThoseForRtsp) {
    std::map<std::string, std::string> seen;
    intercepted->avformat_open_input.instead = [&](AVFormatContext** context, const char*,
                                                   AVDictionary** given) {
        const AVDictionaryEntry* entry = nullptr;
        while ((entry = av_dict_get(*given, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr)
            seen[entry->key] = entry->value;
        avformat_free_context(*context);
        *context = nullptr;
        return AVERROR(ENOENT);
    };
    options.probeSize = 12345;
    options.demuxerOptions = {{"rtsp_flags", "listen"}, {"user_agent", "test"}};
    EXPECT_THROW(InputFormatContext("rtsp://127.0.0.1/a", options), Exception);
    EXPECT_THAT(seen, IsSupersetOf({Pair("buffer_size", "4194304"), Pair("rtsp_flags", "listen"),
                                    Pair("user_agent", "test"), Pair("probesize", "12345")}));
}

TEST_F(OpenOptionsTest, AnOptionOfTheDemuxerTakesEffect) {
    ClipPlan plan;
    plan.frameCount = 5;
    const std::string path = clip("clip.mp4", plan);
    const auto firstTime = [&] {
        InputFormatContext input(path, options);
        EXPECT_TRUE(input.getNextPacketForStream(packet.get(), 0));
        const int64_t pts = packet->pts;
        av_packet_unref(packet.get());
        return pts;
    };
    EXPECT_EQ(firstTime(), 0) << "the edit list takes off the delay of the B-frames";
    options.demuxerOptions["ignore_editlist"] = "1";
    EXPECT_GT(firstTime(), 0);
}

TEST_F(OpenOptionsTest, AnUnknownOptionIsRefused) {
    const std::string path = clip("clip.mp4");
    options.demuxerOptions["no_such_option"] = "1";
    EXPECT_EQ(thrownText<tio::Exception>([&] { InputFormatContext(path, options); }),
              "There is no option \"no_such_option\" for " + path);
}

// A transport stream is searched for its next packet where the last one ended. In no bytes at all,
// as in fewer than a packet has, FFmpeg searches there for ever.
TEST_F(OpenOptionsTest, ASearchForPacketsThatWouldNeverEndIsRefused) {
    const std::string path = clip("clip.mp4");
    options.formatName = "mpegts";
    options.openTimeout = 1s;
    for (const char* size : {"0", "2", "203"}) {
        options.demuxerOptions["resync_size"] = size;
        EXPECT_EQ(thrownText<tio::Exception>([&] { InputFormatContext(path, options); }),
                  "The option \"resync_size\" must be at least 204 for " + path)
            << size;
    }
}

TEST_F(OpenOptionsTest, ASearchForPacketsThatEndsIsTaken) {
    const std::string bytes = transportStream();
    const std::string path = folder.file("gap.ts");
    std::ofstream(path, std::ios::binary) << bytes << std::string(100, 'x') << bytes;
    options.demuxerOptions["resync_size"] = "204";
    InputFormatContext input(path, options);
    EXPECT_EQ(readToEnd(input), 200);
}

TEST_F(OpenOptionsTest, TheDemuxerMayBeNamed) {
    ClipPlan plan;
    plan.format = "h264";
    const std::string path = clip("stream.bin", plan);
    options.formatName = "h264";
    EXPECT_EQ(InputFormatContext(path, options).getContainerName(), "h264");
}

TEST_F(OpenOptionsTest, AnUnknownDemuxerIsRefused) {
    options.formatName = "no such format";
    EXPECT_EQ(thrownText<tio::Exception>([&] { InputFormatContext(clip("clip.mp4"), options); }),
              "There is no demuxer \"no such format\"");
}

// Waiting

TEST_F(OpenOptionsTest, OpeningEndsWhenAServerAcceptsAndSaysNothing) {
    const LoopbackServer server(waitForClose);
    options.openTimeout = 200ms;
    EXPECT_EQ(thrownText<Exception>([&] { InputFormatContext(server.url("rtsp"), options); }),
              "Opening took longer than 200 ms: " + server.url("rtsp"));
}

TEST_F(OpenOptionsTest, OpeningCanBeCancelledFromAnotherThread) {
    std::promise<void> connected;
    const LoopbackServer server([&](const Connection& connection) {
        connected.set_value();
        connection.waitForClose();
    });
    std::thread canceller([&, token = options.cancelToken] {
        connected.get_future().wait();
        token.cancel();
    });
    EXPECT_EQ(thrownText<Exception>([&] { InputFormatContext(server.url("rtsp"), options); }),
              "Opening was cancelled: " + server.url("rtsp"));
    canceller.join();
}

TEST_F(OpenOptionsTest, AReadEndsWhenTheServerFallsSilent) {
    const LoopbackServer server([bytes = transportStream()](const Connection& connection) {
        connection.send(bytes);
        connection.waitForClose();
    });
    options.readTimeout = 2s;
    options.probeSize = 5000;
    options.formatName = "mpegts";
    InputFormatContext input(server.url("tcp"), options);
    EXPECT_GT(readToEnd(input), 90);
    EXPECT_EQ(input.getEndReason().kind, Kind::Timeout);
}

TEST_F(OpenOptionsTest, AfterATimeoutAFurtherReadWaitsOnceMore) {
    std::promise<void> timedOut;
    const std::string bytes = transportStream();
    const size_t half = bytes.size() / 188 / 2 * 188;
    const LoopbackServer server([&](const Connection& connection) {
        connection.send(bytes.substr(0, half));
        timedOut.get_future().wait();
        connection.send(bytes.substr(half));
    });
    options.readTimeout = 2s;
    options.probeSize = 5000;
    options.formatName = "mpegts";
    InputFormatContext input(server.url("tcp"), options);
    const int before = readToEnd(input);
    EXPECT_EQ(input.getEndReason().kind, Kind::Timeout);
    timedOut.set_value();
    EXPECT_GT(readToEnd(input), 20);
    EXPECT_GT(before, 20);
    EXPECT_EQ(input.getEndReason().kind, Kind::EndOfStream);
}

TEST_F(OpenOptionsTest, AReadThatWaitsCanBeCancelledFromAnotherThread) {
    const LoopbackServer server([bytes = transportStream()](const Connection& connection) {
        connection.send(bytes);
        connection.waitForClose();
    });
    options.probeSize = 5000;
    options.formatName = "mpegts";
    InputFormatContext input(server.url("tcp"), options);
    std::thread canceller([token = options.cancelToken] {
        std::this_thread::sleep_for(200ms);
        token.cancel();
    });
    readToEnd(input);
    canceller.join();
    EXPECT_EQ(input.getEndReason().kind, Kind::Cancelled);
}

TEST_F(OpenOptionsTest, ALocalFileIsNotReadOnAfterCancelling) {
    InputFormatContext input(clip("clip.mp4"), options);
    ASSERT_TRUE(input.getNextPacketForStream(packet.get(), 0));
    av_packet_unref(packet.get());
    options.cancelToken.cancel();
    EXPECT_FALSE(input.getNextPacketForStream(packet.get(), 0));
    EXPECT_EQ(input.getEndReason().kind, Kind::Cancelled);
}

// Why no packet came

TEST_F(OpenOptionsTest, BeforeTheEndThereIsNoReason) {
    InputFormatContext input(clip("clip.mp4"));
    EXPECT_EQ(input.getEndReason().kind, Kind::None);
    ASSERT_TRUE(input.getNextPacketForStream(packet.get(), 0));
    av_packet_unref(packet.get());
    EXPECT_EQ(input.getEndReason().kind, Kind::None);
}

TEST_F(OpenOptionsTest, TheEndOfAFileIsTheReason) {
    InputFormatContext input(clip("clip.mp4"));
    EXPECT_EQ(readToEnd(input), 25);
    EXPECT_EQ(input.getEndReason().kind, Kind::EndOfStream);
    EXPECT_EQ(input.getEndReason().text, "");
}

TEST_F(OpenOptionsTest, AfterASeekThereIsNoReasonOnceAPacketComes) {
    InputFormatContext input(clip("clip.mp4"));
    readToEnd(input);
    input.seekStreamToOrBefore(0, 0);
    ASSERT_TRUE(input.getNextPacketForStream(packet.get(), 0));
    av_packet_unref(packet.get());
    EXPECT_EQ(input.getEndReason().kind, Kind::None);
}

TEST_F(OpenOptionsTest, AFailedReadIsTheReasonWithItsCodeAndText) {
    InputFormatContext input(clip("clip.mp4"));
    intercepted->av_read_frame.instead = [](AVFormatContext*, AVPacket*) { return AVERROR(EIO); };
    EXPECT_EQ(readToEnd(input), 0);
    EXPECT_EQ(input.getEndReason().kind, Kind::Error);
    EXPECT_EQ(input.getEndReason().code, AVERROR(EIO));
    EXPECT_EQ(input.getEndReason().text, "Input/output error");
}

TEST_F(OpenOptionsTest, ABrokenConnectionIsAnErrorAndNoEnd) {
    std::promise<void> opened;
    const LoopbackServer server([&, bytes = transportStream()](const Connection& connection) {
        connection.send(bytes);
        opened.get_future().wait(); // a break before that would fail the opening
        connection.reset();
    });
    options.probeSize = 5000;
    options.formatName = "mpegts";
    InputFormatContext input(server.url("tcp"), options);
    opened.set_value();
    readToEnd(input);
    EXPECT_EQ(input.getEndReason().kind, Kind::Error);
    EXPECT_EQ(input.getEndReason().code, AVERROR(ECONNRESET));
}

} // namespace
} // namespace tio::ffmpeg
