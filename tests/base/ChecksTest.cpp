#include "base/checks.h"

#include "ffmpeg_compat.h"
#include "support/Expectations.h"
#include "support/LogCapture.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace tio::ffmpeg {
namespace {

using test::IsLogLine;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(std::is_base_of_v<std::runtime_error, tio::Exception>);
static_assert(std::is_base_of_v<tio::Exception, tio::ffmpeg::Exception>);
static_assert(std::has_virtual_destructor_v<tio::ffmpeg::Exception>);
static_assert(std::is_copy_constructible_v<tio::ffmpeg::Exception>);
static_assert(sizeof(tio::Exception) == sizeof(std::runtime_error),
              "an exception carries nothing but its message");

constexpr detail::Location place = {"Somewhere", 64};
const std::string placeText = R"(..\src\TARN\videoio\Somewhere:64)";

// What the file system answers: no such file, no permission and the like.
constexpr std::array<int, 8> fileSystemCodes = {-1, -2, -13, -16, -21, -24, -28, -30};

std::string ffmpegWords(int code) {
    std::array<char, 1024> buffer{};
    av_strerror(code, buffer.data(), buffer.size());
    return buffer.data();
}

class ChecksTest : public ::testing::Test {
protected:
    static std::string failureOf(int code) {
        return thrownText<tio::ffmpeg::Exception>([code] { detail::checkResult(code, place); });
    }

    static std::string failureOf(int code, const std::string& context) {
        return thrownText<tio::ffmpeg::Exception>(
            [&] { detail::checkResult(code, place, context); });
    }

    static std::string assertionTextOf(const std::string& message, const char* expression) {
        return thrownText<tio::Exception>(
            [&] { detail::failAssertion(message, expression, place); });
    }

    test::LogCapture log;
};

TEST_F(ChecksTest, APlaceIsWrittenAsAPathWithBackslashesAndANumber) {
    EXPECT_EQ(place.text(), placeText);
    EXPECT_EQ((detail::Location{"filter", 7}.text()), R"(..\src\TARN\videoio\filter:7)");
}

TEST_F(ChecksTest, AResultThatIsNotNegativePasses) {
    for (const int code : {0, 1, 2147483647}) {
        EXPECT_NO_THROW(detail::checkResult(code, place)) << code;
        EXPECT_NO_THROW(detail::checkResult(code, place, "doing")) << code;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ChecksTest, AFileThatIsNotThereIsToldInFfmpegsWordsAloneAndNotLogged) {
    EXPECT_EQ(failureOf(AVERROR(ENOENT)), ffmpegWords(AVERROR(ENOENT)));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ChecksTest, NoFileSystemErrorIsLoggedOrGivenAPlace) {
    for (const int code : fileSystemCodes)
        EXPECT_EQ(failureOf(code), ffmpegWords(code)) << code;
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ChecksTest, AFileSystemErrorStillSaysWhatWasAskedFor) {
    for (const int code : fileSystemCodes)
        EXPECT_EQ(failureOf(code, "clip.mp4"), ffmpegWords(code) + ": clip.mp4") << code;
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ChecksTest, InvalidDataIsLoggedAndThrownWithItsPlace) {
    const std::string text = ffmpegWords(AVERROR_INVALIDDATA) + " @ " + placeText;
    EXPECT_EQ(failureOf(AVERROR_INVALIDDATA), text);
    EXPECT_THAT(log.lines(), ElementsAre(IsLogLine("root", 5, text)));
}

TEST_F(ChecksTest, WhatWasAskedForStandsBetweenFfmpegsWordsAndThePlace) {
    const std::string text = ffmpegWords(AVERROR_EOF) + ": Seeking @ " + placeText;
    EXPECT_EQ(failureOf(AVERROR_EOF, "Seeking"), text);
    EXPECT_THAT(log.lines(), ElementsAre(IsLogLine("root", 5, text)));
}

TEST_F(ChecksTest, AnEmptyContextKeepsItsColon) {
    EXPECT_EQ(failureOf(AVERROR_EOF, ""), ffmpegWords(AVERROR_EOF) + ":  @ " + placeText);
}

TEST_F(ChecksTest, EveryOtherErrorHasAPlaceAndOneLineOfLog) {
    for (const int code : {AVERROR(ENOMEM), AVERROR(EINVAL), AVERROR(EIO), AVERROR(ENOTDIR),
                           AVERROR(EAGAIN), AVERROR_STREAM_NOT_FOUND, AVERROR_BUG, -123456}) {
        log.clear();
        const std::string text = ffmpegWords(code) + " @ " + placeText;
        EXPECT_EQ(failureOf(code), text);
        EXPECT_THAT(log.lines(), ElementsAre(IsLogLine("root", 5, text)));
    }
}

TEST_F(ChecksTest, AHandlerOfTheBaseClassesCatchesFfmpegsFailures) {
    EXPECT_THROW(detail::checkResult(AVERROR_EOF, place), tio::Exception);
    EXPECT_THROW(detail::checkResult(AVERROR_EOF, place), std::runtime_error);
}

TEST_F(ChecksTest, AFailedAssertionThrowsTheMessageAlone) {
    EXPECT_EQ(assertionTextOf("No codec for 7", "codec"), "No codec for 7");
    EXPECT_EQ(assertionTextOf("Invalid pixel format", "false"), "Invalid pixel format");
}

TEST_F(ChecksTest, AFailedAssertionLogsTheMessageWithItsPlaceAndThenTheExpression) {
    assertionTextOf("Could not get swscale context", "m_sws_context");
    EXPECT_THAT(log.lines(),
                ElementsAre(IsLogLine("root", 4, "Could not get swscale context @ " + placeText),
                            IsLogLine("root", 4, std::string("Assertion failed: m_sws_context"))));
}

TEST_F(ChecksTest, AnAssertionOfFalseLogsOneLine) {
    assertionTextOf("Invalid pixel format", "false");
    EXPECT_THAT(log.lines(),
                ElementsAre(IsLogLine("root", 4, "Invalid pixel format @ " + placeText)));
}

TEST_F(ChecksTest, OnlyExactlyFalseKeepsTheExpressionOutOfTheLog) {
    for (const char* expression : {"False", "false ", "falsehood", "0", ""}) {
        log.clear();
        assertionTextOf("message", expression);
        EXPECT_THAT(log.linesAt(4), ElementsAre("message @ " + placeText,
                                                std::string("Assertion failed: ") + expression));
    }
}

TEST_F(ChecksTest, APlainFailureHasNoPlaceInTheLogEither) {
    const std::string text = "Could not open file \"index\"";
    EXPECT_EQ(thrownText<tio::Exception>([&] { detail::failPlainly(text); }), text);
    EXPECT_THAT(log.lines(), ElementsAre(IsLogLine("root", 4, text)));
}

TEST_F(ChecksTest, ProgressIsLoggedAtLevelOne) {
    detail::logProgress("scanning");
    EXPECT_THAT(log.lines(), ElementsAre(IsLogLine("root", 1, std::string("scanning"))));
}

TEST_F(ChecksTest, ALossThatCannotBeThrownIsLoggedAsAFailure) {
    detail::logFailure("the end of the file is missing");
    EXPECT_THAT(log.lines(),
                ElementsAre(IsLogLine("root", 4, std::string("the end of the file is missing"))));
}

} // namespace
} // namespace tio::ffmpeg
