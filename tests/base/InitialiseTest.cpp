#include "base/initialise.h"

#include "support/BareObjects.h"
#include "support/ByteEdits.h"
#include "support/Expectations.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FormatContext.h>
#include <TARN/videoio/InputFormatContext.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::IsLogLine;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

// How a line reaches the log: as FFmpeg formats it, its context in front, and with the last
// character turned into a zero.
std::string forwardedForm(void* context, int level, const char* format, ...) {
    std::array<char, 8192> buffer{};
    int startsLine = 1;
    va_list arguments;
    va_start(arguments, format);
    av_log_format_line(context, level, format, arguments, buffer.data(),
                       static_cast<int>(buffer.size()), &startsLine);
    va_end(arguments);
    std::string line = buffer.data();
    if (!line.empty())
        line.back() = '\0';
    return line;
}

class LogBridgeTest : public ::testing::Test {
protected:
    LogBridgeTest() { detail::initialiseOnce(); }
    ~LogBridgeTest() override { log::setLevel(levelBefore); }

    // FFmpeg's level, and the one that a message of it has in our log.
    static std::vector<std::pair<int, int>> levelTable() {
        return {{AV_LOG_PANIC, 5},
                {AV_LOG_FATAL, 5},
                {AV_LOG_ERROR, 3},
                {AV_LOG_WARNING, 2},
                {AV_LOG_INFO, 1},
                {AV_LOG_QUIET, 0},
                {-1, 0},
                {1, 0},
                {4, 0},
                {12, 0},
                {20, 0},
                {31, 0}};
    }

    log::Level levelBefore = log::getLevel();
    test::LogCapture captured;
    test::BareContext context;
};

TEST_F(LogBridgeTest, MapsFfmpegsLevelsAndTakesTheOnesBetweenAsLowest) {
    for (const auto& [ffmpegLevel, level] : levelTable()) {
        captured.clear();
        av_log(nullptr, ffmpegLevel, "message\n");
        EXPECT_THAT(captured.lines(),
                    ElementsAre(IsLogLine("ffmpeg", level, std::string("message\0", 8))))
            << ffmpegLevel;
    }
}

TEST_F(LogBridgeTest, NeverForwardsVerboseMessages) {
    for (const int ffmpegLevel :
         {AV_LOG_INFO + 1, AV_LOG_VERBOSE, AV_LOG_DEBUG, AV_LOG_TRACE, 1 << 20})
        av_log(&*context, ffmpegLevel, "message\n");
    EXPECT_THAT(captured.lines(), IsEmpty());
}

TEST_F(LogBridgeTest, ForwardsWhatIsNotAboveTheLevelThatIsSet) {
    for (int setting = -1; setting <= 5; ++setting) {
        log::setLevel(static_cast<log::Level>(setting));
        for (const auto& [ffmpegLevel, level] : levelTable()) {
            captured.clear();
            av_log(nullptr, ffmpegLevel, "message\n");
            EXPECT_EQ(captured.lines().size(), setting >= level ? 1u : 0u)
                << "FFmpeg's level " << ffmpegLevel << " with our level set to " << setting;
        }
    }
}

TEST_F(LogBridgeTest, PutsTheContextBeforeTheLineAndAZeroInPlaceOfItsEnd) {
    av_log(&*context, AV_LOG_ERROR, "frame %d of %s\n", 7, "clip");
    const std::string expected =
        forwardedForm(&*context, AV_LOG_ERROR, "frame %d of %s\n", 7, "clip");
    EXPECT_THAT(expected, StartsWith("[")) << "FFmpeg names the context in brackets";
    EXPECT_THAT(captured.lines(), ElementsAre(IsLogLine("ffmpeg", 3, expected)));
}

TEST_F(LogBridgeTest, KeepsTheLengthOfTheLine) {
    av_log(nullptr, AV_LOG_ERROR, "four\n");
    EXPECT_THAT(captured.linesAt(3), ElementsAre(SizeIs(5)));
}

TEST_F(LogBridgeTest, GivesEveryMessageItsPrefixEvenWithinALine) {
    av_log(&*context, AV_LOG_INFO, "first half, ");
    av_log(&*context, AV_LOG_INFO, "second half\n");
    EXPECT_THAT(captured.linesAt(1),
                ElementsAre(forwardedForm(&*context, AV_LOG_INFO, "first half, "),
                            forwardedForm(&*context, AV_LOG_INFO, "second half\n")));
    EXPECT_THAT(captured.linesAt(1), Each(StartsWith("[")));
}

TEST_F(LogBridgeTest, TakesTheLastCharacterOfALineWithoutANewline) {
    av_log(nullptr, AV_LOG_WARNING, "message");
    EXPECT_THAT(captured.linesAt(2), ElementsAre(std::string("messag\0", 7)));
}

TEST_F(LogBridgeTest, ForwardsAnEmptyMessageAsAnEmptyLine) {
    av_log(nullptr, AV_LOG_WARNING, "%s", "");
    EXPECT_THAT(captured.lines(), ElementsAre(IsLogLine("ffmpeg", 2, std::string())));
}

TEST_F(LogBridgeTest, ForwardsLongMessagesWhole) {
    const std::string text(5000, 'x');
    av_log(&*context, AV_LOG_ERROR, "%s\n", text.c_str());
    EXPECT_THAT(captured.linesAt(3),
                ElementsAre(forwardedForm(&*context, AV_LOG_ERROR, "%s\n", text.c_str())));
}

TEST_F(LogBridgeTest, ForwardsWhatFfmpegSaysOfABrokenFile) {
    const test::TemporaryFolder folder;
    const std::string path = folder.file("headless.mp4");
    test::writeBytes(path, {0, 0, 0, 16, 'f', 't', 'y', 'p', 'i', 's', 'o', 'm', 0, 0, 2, 0});
    EXPECT_THROW(InputFormatContext{path}, tio::ffmpeg::Exception);
    EXPECT_THAT(captured.linesAt(3),
                ElementsAre(AllOf(StartsWith("[mov,mp4"), EndsWith(std::string(1, '\0')),
                                  HasSubstr("moov atom not found"))));
}

std::atomic<int> seenByOwnCallback;

void ownCallback(void*, int, const char*, va_list) {
    ++seenByOwnCallback;
}

// The test's main thread may be initialised or not; a new thread never is.
template <typename Work>
void onANewThread(Work&& work) {
    std::thread(std::forward<Work>(work)).join();
}

class InitialiseThreadsTest : public ::testing::Test {
protected:
    InitialiseThreadsTest() {
        seenByOwnCallback = 0;
        av_log_set_callback(ownCallback);
    }
    ~InitialiseThreadsTest() override { av_log_set_callback(detail::forwardFfmpegLog); }

    bool reachesOurLog() {
        captured.clear();
        av_log(nullptr, AV_LOG_ERROR, "message\n");
        return captured.contains("ffmpeg", 3, std::string("message\0", 8));
    }

    test::LogCapture captured;
};

TEST_F(InitialiseThreadsTest, TheFirstCallOfAThreadRoutesFfmpegsMessagesIntoOurLog) {
    ASSERT_FALSE(reachesOurLog());
    onANewThread([] { detail::initialiseOnce(); });
    EXPECT_TRUE(reachesOurLog());
}

TEST_F(InitialiseThreadsTest, FurtherCallsOfAThreadDoNothing) {
    onANewThread([] {
        detail::initialiseOnce();
        av_log_set_callback(ownCallback);
        detail::initialiseOnce();
    });
    EXPECT_FALSE(reachesOurLog());
    EXPECT_EQ(seenByOwnCallback, 1);
}

TEST_F(InitialiseThreadsTest, EveryNewThreadDoesItAgain) {
    onANewThread([] { detail::initialiseOnce(); });
    av_log_set_callback(ownCallback);
    onANewThread([] { detail::initialiseOnce(); });
    EXPECT_TRUE(reachesOurLog());
}

TEST_F(InitialiseThreadsTest, MakingAFormatContextInitialises) {
    onANewThread([] { const FormatContext context; });
    EXPECT_TRUE(reachesOurLog());
}

TEST_F(InitialiseThreadsTest, OpeningAnInputInitialisesBeforeItFails) {
    onANewThread([] { EXPECT_ANY_THROW(InputFormatContext("no such file")); });
    EXPECT_TRUE(reachesOurLog());
}

TEST_F(InitialiseThreadsTest, ManyThreadsMayInitialiseAtTheSameMoment) {
    constexpr int threadCount = 8;
    std::atomic<int> waiting{threadCount};
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back([&waiting] {
            --waiting;
            while (waiting > 0)
                std::this_thread::yield();
            detail::initialiseOnce();
            detail::initialiseOnce();
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(reachesOurLog());
}

TEST_F(InitialiseThreadsTest, MessagesOfManyThreadsArriveWhole) {
    constexpr int threadCount = 4;
    constexpr int messageCount = 100;
    detail::initialiseOnce();
    av_log_set_callback(detail::forwardFfmpegLog);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back([i] {
            for (int n = 0; n < messageCount; ++n)
                av_log(nullptr, AV_LOG_ERROR, "thread %d says %d\n", i, n);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(captured.lines(), SizeIs(threadCount * messageCount));
    for (int i = 0; i < threadCount; ++i)
        for (int n = 0; n < messageCount; ++n)
            EXPECT_TRUE(captured.contains(
                "ffmpeg", 3, forwardedForm(nullptr, AV_LOG_ERROR, "thread %d says %d\n", i, n)));
}

} // namespace
} // namespace tio::ffmpeg
