#include <TARN/logging/log.h>

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace log = tio::log;

struct Message {
    std::string logger;
    int level;
    std::string text;

    bool operator==(const Message& other) const {
        return logger == other.logger && level == other.level && text == other.text;
    }
};

class Log : public testing::Test {
protected:
    void TearDown() override {
        log::setSink({});
        log::setLevel(log::LevelFatal);
    }

    void record() {
        log::setSink([this](const std::string& logger, log::Level level, const std::string& text) {
            messages.push_back({logger, level, text});
        });
    }

    std::vector<Message> messages;
};

TEST_F(Log, LevelsAreTheIntegersFromZeroToFive) {
    EXPECT_EQ(log::LevelTrace, 0);
    EXPECT_EQ(log::LevelInfo, 1);
    EXPECT_EQ(log::LevelWarning, 2);
    EXPECT_EQ(log::LevelError, 3);
    EXPECT_EQ(log::LevelFailure, 4);
    EXPECT_EQ(log::LevelFatal, 5);
}

TEST_F(Log, LevelIsTheHighestAtFirst) {
    EXPECT_EQ(log::getLevel(), 5);
}

TEST_F(Log, LevelCanBeSet) {
    log::setLevel(log::LevelWarning);
    EXPECT_EQ(log::getLevel(), log::LevelWarning);
}

TEST_F(Log, SinkGetsLoggerLevelAndText) {
    record();
    log::_output("root", log::LevelFailure, "no such stream");
    EXPECT_EQ(messages, (std::vector<Message>{{"root", 4, "no such stream"}}));
}

TEST_F(Log, SinkGetsTheTextUntouched) {
    record();
    const std::string text("line\n\0", 6);
    log::_output("ffmpeg", log::LevelInfo, text);
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].text, text);
}

TEST_F(Log, SinkGetsMessagesOfEveryLevelWhateverIsSet) {
    record();
    log::setLevel(log::LevelTrace);
    for (int level = 0; level <= 5; ++level)
        log::_output("root", static_cast<log::Level>(level), "text");
    ASSERT_EQ(messages.size(), 6U);
    for (int level = 0; level <= 5; ++level)
        EXPECT_EQ(messages[static_cast<std::size_t>(level)].level, level);
}

TEST_F(Log, LaterSinkReplacesTheEarlier) {
    record();
    int calls = 0;
    log::setSink([&](const std::string&, log::Level, const std::string&) { ++calls; });
    log::_output("root", log::LevelInfo, "text");
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Log, ReplacedSinkIsReleased) {
    const auto owned = std::make_shared<int>(0);
    log::setSink([owned](const std::string&, log::Level, const std::string&) {});
    EXPECT_EQ(owned.use_count(), 2);
    log::setSink({});
    EXPECT_EQ(owned.use_count(), 1);
}

TEST_F(Log, SinkMayLogItself) {
    log::setSink([this](const std::string& logger, log::Level level, const std::string& text) {
        messages.push_back({logger, level, text});
        if (messages.size() < 3)
            log::_output("nested", level, text);
    });
    log::_output("root", log::LevelInfo, "text");
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[2].logger, "nested");
}

TEST_F(Log, SinkMayReplaceItself) {
    log::setSink([this](const std::string&, log::Level, const std::string& text) {
        record(); // releases the function that runs; its captures must stay alive
        messages.push_back({"first", 0, text});
    });
    log::_output("root", log::LevelInfo, "one");
    log::_output("root", log::LevelInfo, "two");
    EXPECT_EQ(messages, (std::vector<Message>{{"first", 0, "one"}, {"root", 1, "two"}}));
}

struct LogsWhenDestroyed {
    LogsWhenDestroyed() = default;
    LogsWhenDestroyed(const LogsWhenDestroyed&) = delete;
    LogsWhenDestroyed& operator=(const LogsWhenDestroyed&) = delete;
    ~LogsWhenDestroyed() { log::_output("destructor", log::LevelTrace, "gone"); }
};

TEST_F(Log, DestructorOfASinkMayLog) {
    log::setSink([owned = std::make_shared<LogsWhenDestroyed>()](const std::string&, log::Level,
                                                                 const std::string&) {});
    record();
    EXPECT_EQ(messages, (std::vector<Message>{{"destructor", 0, "gone"}}));
}

TEST_F(Log, ExceptionOfASinkDoesNotReachTheReporter) {
    log::setSink([](const std::string&, log::Level, const std::string&) {
        throw std::runtime_error("disk full");
    });
    EXPECT_NO_THROW(log::_output("root", log::LevelFatal, "text"));
}

TEST_F(Log, ManyThreadsLogWhileSinksChange) {
    constexpr int threadCount = 3;
    constexpr int messagesEach = 2000;
    std::atomic<int> received{0};
    const auto counting = [&](const std::string&, log::Level, const std::string&) { ++received; };
    log::setSink(counting);
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < messagesEach; ++n) {
                log::setLevel(static_cast<log::Level>(n % 6));
                log::_output("root", log::getLevel(), "text");
            }
        });
    }
    for (int n = 0; n < 500; ++n)
        log::setSink(counting);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(received, threadCount * messagesEach);
}

// Only the order of destruction is under test: a crash at exit fails the program.
const LogsWhenDestroyed logsAtExit;

} // namespace
