#include "RtspServer.h"
#include "input/InputAccess.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/HashedPicture.h"
#include "support/LogCapture.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

extern "C" {
#include <libavutil/opt.h>
}

namespace tio::ffmpeg {
namespace {

using namespace std::chrono_literals;
using test::ClipPlan;
using test::RtspServer;
using test::thrownText;
using ::testing::AnyOf;
using ::testing::ElementsAreArray;
using ::testing::StartsWith;
using Kind = EndReason::Kind;
using Transports = RtspServer::Transports;

/// A picture and its time, which the server counts from the start of the clip.
struct Shown {
    uint64_t hash;
    Rational time;

    bool operator==(const Shown& other) const { return hash == other.hash && time == other.time; }
};

void PrintTo(const Shown& shown, std::ostream* out) {
    *out << std::hex << shown.hash << std::dec << " at " << shown.time;
}

// Sockets of this process that take datagrams: a stream over TCP needs none.
int datagramSockets() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename());
        int domain = 0;
        int type = 0;
        socklen_t size = sizeof(int);
        if (::getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 &&
            ::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0)
            count += domain == AF_INET && type == SOCK_DGRAM ? 1 : 0;
    }
    return count;
}

// A port of the loopback interface on which nobody listens.
int deafPort() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* general = reinterpret_cast<sockaddr*>(&address);
    const int descriptor = ::socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(::bind(descriptor, general, length), 0);
    EXPECT_EQ(::getsockname(descriptor, general, &length), 0);
    ::close(descriptor);
    return ntohs(address.sin_port);
}

class RtspTest : public ::testing::TestWithParam<Transports> {
protected:
    explicit RtspTest(const ClipPlan& plan) { test::makeClip(clip, plan); }

    void SetUp() override {
        server = std::make_unique<RtspServer>(clip, transports());
        if (!server->isInstalled())
            GTEST_SKIP() << "GStreamer's RTSP server is not installed; run: "
                            "scripts/install-dependencies tests";
    }

    virtual Transports transports() const { return Transports::All; }

    std::shared_ptr<InputFormatContext> open() const {
        return std::make_shared<InputFormatContext>(server->url());
    }

    // Reads on from an input; returns how many packets came.
    static int readToEnd(InputFormatContext& input, int most = 1 << 30) {
        const detail::PacketHandle packet(av_packet_alloc());
        int count = 0;
        for (; count < most && input.getNextPacketForStream(packet.get(), 0); ++count)
            av_packet_unref(packet.get());
        return count;
    }

    const test::TemporaryFolder folder;
    const std::string clip = folder.file("clip.mp4");
    test::LogCapture log;
    std::unique_ptr<RtspServer> server;
};

std::vector<Shown> received(const std::shared_ptr<InputFormatContext>& input,
                            size_t most = std::numeric_limits<size_t>::max()) {
    std::vector<Shown> pictures;
    VideoStreamDecoder video(input, PixelFormat::RGB);
    for (auto next = video.readNextFrame(); next.frame; next = video.readNextFrame()) {
        if (pictures.size() == most)
            break;
        pictures.push_back({test::hashedPicture(*next.frame).hash, next.timestamp});
    }
    return pictures;
}

std::vector<Shown> picturesOf(const std::string& path) {
    std::vector<Shown> pictures;
    for (const test::OracleFrame& frame : test::oracleFrames(path))
        pictures.push_back(
            {frame.hash, Rational(frame.time().numerator, frame.time().denominator)});
    return pictures;
}

// Half a second of pictures, for the server takes as long to send as they take to be shown.
ClipPlan shortClip() {
    ClipPlan plan;
    plan.timeBase = {1, 100};
    plan.frameCount = 50;
    return plan;
}

// Pictures

class RtspClipTest : public RtspTest {
protected:
    RtspClipTest() : RtspTest(shortClip()) {}
};

// FFmpeg gives no time to the first packet of a stream of H.264, and a picture without a time is
// left out. All others have to come.
TEST_F(RtspClipTest, PicturesOverTcpAreThoseOfTheClipFromTheSecondOn) {
    std::vector<Shown> expected = picturesOf(clip);
    expected.erase(expected.begin());
    EXPECT_EQ(received(open()), expected);
}

TEST_F(RtspClipTest, AServerThatOffersTcpIsReceivedOverTcp) {
    const auto input = open();
    EXPECT_EQ(datagramSockets(), 0);
}

TEST_F(RtspClipTest, ReadingToTheEndIsTheEnd) {
    const auto input = open();
    EXPECT_EQ(readToEnd(*input), 50);
    EXPECT_EQ(input->getEndReason().kind, Kind::EndOfStream);
}

TEST_F(RtspClipTest, TheTwoTransportOptionsReachTheDemuxer) {
    const auto input = open();
    void* demuxer = detail::InputAccess::contextOf(*input).priv_data;
    int64_t bufferSize = 0;
    int64_t flags = 0;
    EXPECT_EQ(av_opt_get_int(demuxer, "buffer_size", 0, &bufferSize), 0);
    EXPECT_EQ(av_opt_get_int(demuxer, "rtsp_flags", 0, &flags), 0);
    const AVOption* preferTcp = av_opt_find(demuxer, "prefer_tcp", "rtsp_flags", 0, 0);
    ASSERT_NE(preferTcp, nullptr);
    EXPECT_EQ(bufferSize, 4194304);
    EXPECT_EQ(flags, preferTcp->default_val.i64);
}

TEST_F(RtspClipTest, APathThatTheServerDoesNotHaveIsToldWithTheUrl) {
    const std::string url = server->url() + "-of-nobody";
    EXPECT_THAT(thrownText<Exception>([&] { InputFormatContext{url}; }),
                StartsWith("Server returned 404 Not Found: " + url));
}

TEST(RtspConnectionTest, ARefusedConnectionIsToldWithTheUrl) {
    const test::LogCapture log;
    const std::string url = "rtsp://127.0.0.1:" + std::to_string(deafPort()) + "/clip";
    EXPECT_THAT(thrownText<Exception>([&] { InputFormatContext{url}; }),
                StartsWith("Connection refused: " + url));
}

// A datagram may get lost where the machine is too busy to take it in time. Each picture is then a
// key frame that fits into one datagram, so that a lost one costs one picture and spoils no other.
ClipPlan clipForDatagrams() {
    ClipPlan plan = shortClip();
    plan.gopSize = 1;
    plan.encoderOptions = {{"crf", "40"}};
    return plan;
}

class RtspDatagramTest : public RtspTest {
protected:
    RtspDatagramTest() : RtspTest(clipForDatagrams()) {}
    Transports transports() const override { return Transports::UdpAlone; }
};

TEST_F(RtspDatagramTest, AServerWithoutTcpIsReceivedOverUdp) {
    const auto input = open();
    EXPECT_GT(datagramSockets(), 0);
}

TEST_F(RtspDatagramTest, PicturesOverUdpAreThoseOfTheClip) {
    const std::vector<Shown> pictures = picturesOf(clip);
    const std::vector<Shown> came = received(open());
    EXPECT_GE(came.size(), pictures.size() / 2);
    ASSERT_FALSE(came.empty());
    // FFmpeg 4.3 gives the first picture the time of a later one.
    auto place = std::find_if(pictures.begin(), pictures.end(), [&](const Shown& picture) {
        return picture.hash == came.front().hash;
    });
    ASSERT_NE(place, pictures.end()) << ::testing::PrintToString(came.front());
    for (const Shown& picture : std::vector<Shown>(came.begin() + 1, came.end())) {
        place = std::find(place, pictures.end(), picture);
        ASSERT_NE(place, pictures.end())
            << "out of order, or another picture: " << ::testing::PrintToString(picture);
    }
}

// Servers that fail

// Ten seconds: the server is not done with them when something happens to it.
ClipPlan longClip() {
    ClipPlan plan = shortClip();
    plan.frameCount = 1000;
    return plan;
}

class RtspServerTest : public RtspTest {
protected:
    RtspServerTest() : RtspTest(longClip()) {}
    Transports transports() const override { return GetParam(); }

    std::shared_ptr<InputFormatContext> openWithOptions() const {
        return std::make_shared<InputFormatContext>(server->url(), options);
    }

    OpenOptions options;
};

TEST_P(RtspServerTest, AServerThatDiesEndsThePackets) {
    const auto input = open();
    EXPECT_EQ(readToEnd(*input, 5), 5);
    server->kill();
    EXPECT_LT(readToEnd(*input), 900);
    // The system closes its connections. It resets one that the server left something unread of.
    EXPECT_THAT(input->getEndReason().kind, AnyOf(Kind::EndOfStream, Kind::Error));
}

TEST_P(RtspServerTest, AReadEndsWhenTheServerHalts) {
    options.readTimeout = 300ms;
    const auto input = openWithOptions();
    EXPECT_EQ(readToEnd(*input, 5), 5);
    server->halt();
    EXPECT_LT(readToEnd(*input), 900);
    EXPECT_EQ(input->getEndReason().kind, Kind::Timeout);
}

TEST_P(RtspServerTest, AfterATimeoutThePacketsGoOn) {
    options.readTimeout = 300ms;
    const auto input = openWithOptions();
    server->halt();
    readToEnd(*input);
    server->goOn();
    int after = 0;
    for (int reads = 0; after < 5 && reads < 100;
         ++reads) // on a busy machine it may time out again
        after += readToEnd(*input, 5 - after);
    EXPECT_EQ(after, 5);
}

// The first decoder was drained when no packet came. Every twelfth picture is a key frame.
TEST_P(RtspServerTest, AfterATimeoutANewDecoderShowsTheClipFromTheNextKeyFrameOn) {
    options.readTimeout = 300ms;
    const auto input = openWithOptions();
    server->halt();
    received(input);
    server->goOn();
    std::vector<Shown> came;
    for (int tries = 0; came.size() < 30 && tries < 100; ++tries)
        came = received(input, 30);
    ASSERT_EQ(came.size(), 30U);
    const std::vector<Shown> pictures = picturesOf(clip);
    const auto first = std::find(pictures.begin(), pictures.end(), came.front());
    ASSERT_EQ((first - pictures.begin()) % 12, 0);
    EXPECT_THAT(came, ElementsAreArray(first, first + 30));
}

TEST_P(RtspServerTest, AReadFromAHaltedServerCanBeCancelled) {
    const auto input = openWithOptions();
    server->halt();
    std::thread canceller([token = options.cancelToken] {
        std::this_thread::sleep_for(200ms);
        token.cancel();
    });
    readToEnd(*input);
    canceller.join();
    EXPECT_EQ(input->getEndReason().kind, Kind::Cancelled);
}

TEST_P(RtspServerTest, OpeningEndsWhenTheServerIsHalted) {
    server->halt();
    options.openTimeout = 300ms;
    EXPECT_EQ(thrownText<Exception>([&] { openWithOptions(); }),
              "Opening took longer than 300 ms: " + server->url());
}

INSTANTIATE_TEST_SUITE_P(Over, RtspServerTest,
                         ::testing::Values(Transports::All, Transports::UdpAlone),
                         [](const auto& instance) {
                             return instance.param == Transports::All ? "Tcp" : "Udp";
                         });

} // namespace
} // namespace tio::ffmpeg
