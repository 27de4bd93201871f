#include "base/handles.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/LogCapture.h"
#include "support/LoopbackServer.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

extern "C" {
#include <libavcodec/packet.h>
}

namespace tio::ffmpeg {
namespace {

using namespace std::chrono_literals;
using test::Connection;
using test::LoopbackServer;
using test::thrownText;
using Kind = EndReason::Kind;

constexpr auto pause = 50ms; // between two questions

class CancelTokenTest : public ::testing::Test {
protected:
    std::string bytesOfTransportStream() {
        const std::string path = folder.file("clip.ts");
        test::ClipPlan plan;
        plan.format = "mpegts";
        plan.frameCount = 100;
        test::makeClip(path, plan);
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    OpenOptions options;
    test::TemporaryFolder folder;
    test::LogCapture log;
};

TEST_F(CancelTokenTest, AnEmptyFunctionIsRefused) {
    EXPECT_THROW(CancelToken(CancelToken::Poll{}), tio::Exception);
}

TEST_F(CancelTokenTest, TheCallerIsAskedAtOnceAndThenNoMoreThanOnceInAPause) {
    int questions = 0;
    const CancelToken token([&] {
        ++questions;
        return false;
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(token.isCancelled());
    EXPECT_EQ(questions, 1);
    for (int i = 0; i < 100000; ++i)
        EXPECT_FALSE(token.isCancelled());
    EXPECT_LE(questions, 1 + (std::chrono::steady_clock::now() - start) / pause);
    std::this_thread::sleep_for(pause);
    const int before = questions;
    EXPECT_FALSE(token.isCancelled());
    EXPECT_EQ(questions, before + 1);
}

TEST_F(CancelTokenTest, AYesIsForOnceAndCancellingForGood) {
    bool answer = true;
    const CancelToken token([&] { return answer; });
    EXPECT_TRUE(token.isCancelled());
    answer = false;
    std::this_thread::sleep_for(pause);
    EXPECT_FALSE(token.isCancelled());
    const CancelToken copy = token;
    copy.cancel();
    EXPECT_TRUE(token.isCancelled());
    EXPECT_TRUE(token.isCancelled());
}

TEST_F(CancelTokenTest, WhatThrowsSaysYes) {
    const CancelToken token([]() -> bool { throw std::runtime_error("interrupted"); });
    EXPECT_TRUE(token.isCancelled());
}

TEST_F(CancelTokenTest, OnlyOneThreadAtATimeAsks) {
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    const CancelToken token([&] {
        most = std::max<int>(most, ++inside);
        std::this_thread::sleep_for(pause);
        --inside;
        return false;
    });
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int asked = 0; asked < 200; ++asked) {
                static_cast<void>(token.isCancelled());
                std::this_thread::sleep_for(1ms);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(most, 1);
}

TEST_F(CancelTokenTest, OpeningEndsWhenTheCallerSaysSo) {
    const LoopbackServer server([](const Connection& connection) { connection.waitForClose(); });
    int questions = 0;
    options.cancelToken = CancelToken([&] { return ++questions == 3; });
    EXPECT_EQ(thrownText<Exception>([&] { InputFormatContext(server.url("rtsp"), options); }),
              "Opening was cancelled: " + server.url("rtsp"));
    EXPECT_EQ(questions, 3);
}

TEST_F(CancelTokenTest, AfterAReadThatWasStoppedAFurtherOneGoesOn) {
    std::promise<void> stopped;
    const std::string bytes = bytesOfTransportStream();
    const size_t half = bytes.size() / 188 / 2 * 188;
    const LoopbackServer server([&](const Connection& connection) {
        connection.send(bytes.substr(0, half));
        stopped.get_future().wait();
        connection.send(bytes.substr(half));
    });
    std::atomic<bool> stop{false};
    options.cancelToken = CancelToken([&] { return stop.load(); });
    options.probeSize = 5000;
    options.formatName = "mpegts";
    InputFormatContext input(server.url("tcp"), options);
    const detail::PacketHandle packet(av_packet_alloc());
    const auto readOn = [&] {
        int count = 0;
        for (; input.getNextPacketForStream(packet.get(), 0); ++count)
            av_packet_unref(packet.get());
        return count;
    };
    stop = true;
    readOn();
    EXPECT_EQ(input.getEndReason().kind, Kind::Cancelled);
    stop = false;
    stopped.set_value();
    EXPECT_GT(readOn(), 20);
    EXPECT_EQ(input.getEndReason().kind, Kind::EndOfStream);
}

} // namespace
} // namespace tio::ffmpeg
