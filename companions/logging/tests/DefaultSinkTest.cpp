#include <TARN/logging/log.h>

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace {

namespace log = tio::log;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::string shown(log::Level level, const std::string& text) {
    CaptureStderr();
    log::_output("root", level, text);
    return GetCapturedStderr();
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

TEST(DefaultSink, ShowsErrorsFailuresAndFatalCalls) {
    for (const log::Level level : {log::LevelError, log::LevelFailure, log::LevelFatal}) {
        const std::string line = shown(level, "broken packet");
        EXPECT_TRUE(endsWith(line, "broken packet\n")) << line;
        EXPECT_TRUE(contains(line, "root")) << line;
    }
}

TEST(DefaultSink, ShowsNothingBelowErrors) {
    for (const log::Level level : {log::LevelTrace, log::LevelInfo, log::LevelWarning})
        EXPECT_EQ(shown(level, "progress"), "") << "level " << level;
}

TEST(DefaultSink, DropsLineEndsAndZerosAtTheEnd) {
    const std::string text("broken packet\r\n\n\0\0", 18);
    EXPECT_TRUE(endsWith(shown(log::LevelError, text), "] broken packet\n"));
    EXPECT_TRUE(endsWith(shown(log::LevelError, "\n\n"), "] \n"));
}

TEST(DefaultSink, KeepsLineEndsInside) {
    EXPECT_TRUE(endsWith(shown(log::LevelError, "one\n\ttwo"), "one\n\ttwo\n"));
}

TEST(DefaultSink, ControlCharactersDoNotReachTheTerminal) {
    const std::string line = shown(log::LevelError, "title \x1b[2J\a end");
    EXPECT_TRUE(endsWith(line, "title ?[2J? end\n")) << line;
}

TEST(DefaultSink, BracesAreText) {
    EXPECT_TRUE(endsWith(shown(log::LevelError, "{} {0} {oops"), "{} {0} {oops\n"));
}

TEST(DefaultSink, ComesBackWithAnEmptyFunction) {
    log::setSink([](const std::string&, log::Level, const std::string&) {});
    EXPECT_EQ(shown(log::LevelFatal, "unseen"), "");
    log::setSink(nullptr);
    EXPECT_TRUE(endsWith(shown(log::LevelFatal, "seen"), "seen\n"));
}

TEST(DefaultSink, ClosedStandardErrorIsNoFailure) {
    const int kept = dup(STDERR_FILENO);
    ASSERT_GE(kept, 0);
    close(STDERR_FILENO);
    EXPECT_NO_THROW(log::_output("root", log::LevelFatal, "nobody listens"));
    dup2(kept, STDERR_FILENO);
    close(kept);
}

} // namespace
