#include "support/LogCapture.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace tio::test {
namespace {

TEST(LogCapture, KeepsLoggerLevelAndText) {
    LogCapture capture;
    log::_output("root", log::LevelFailure, "it broke");
    EXPECT_TRUE(capture.contains("root", 4, "it broke"));
    EXPECT_FALSE(capture.contains("root", 5, "it broke"));
    EXPECT_EQ(capture.linesAt(4), std::vector<std::string>{"it broke"});
}

TEST(LogCapture, CountsMessagesThatHoldAPart) {
    LogCapture capture;
    log::_output("root", log::LevelInfo, "one apple");
    log::_output("root", log::LevelError, "two apples");
    EXPECT_EQ(capture.count("apple"), 2u);
    EXPECT_EQ(capture.count("apples"), 1u);
    EXPECT_FALSE(capture.contains("pear"));
}

TEST(LogCapture, KeepsMessagesOfAllThreads) {
    LogCapture capture;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int n = 0; n < 100; ++n)
                log::_output("root", log::LevelInfo, "line");
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(capture.lines().size(), 400u);
}

TEST(LogCapture, StartsWithoutTheMessagesOfAnEarlierCapture) {
    {
        LogCapture first;
        log::_output("root", log::LevelInfo, "first");
    }
    LogCapture second;
    log::_output("root", log::LevelInfo, "second");
    EXPECT_EQ(second.linesAt(1), std::vector<std::string>{"second"});
}

TEST(LogCapture, ForgetsWhenItIsCleared) {
    LogCapture capture;
    log::_output("root", log::LevelInfo, "before");
    capture.clear();
    EXPECT_TRUE(capture.lines().empty());
}

} // namespace
} // namespace tio::test
