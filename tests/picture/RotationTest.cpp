#include "picture/orientation.h"
#include "support/BareObjects.h"
#include "support/Expectations.h"
#include "support/LogCapture.h"

#include <TARN/videoio/Types.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::IsLogLine;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RotationTest : public ::testing::Test {
protected:
    int quarterTurnsOf(const char* key, const std::string& tag) {
        const test::BareContext context;
        test::check(av_dict_set(&context.stream().metadata, key, tag.c_str(), 0), "tag");
        return getStreamRotation(&context.stream());
    }

    int quarterTurnsOf(const std::string& tag) { return quarterTurnsOf("rotate", tag); }

    test::LogCapture log;
};

TEST_F(RotationTest, AStreamWithoutMetadataIsUpright) {
    const test::BareContext context;
    ASSERT_EQ(context.stream().metadata, nullptr);
    EXPECT_EQ(getStreamRotation(&context.stream()), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RotationTest, OtherTagsTurnNothing) {
    EXPECT_EQ(quarterTurnsOf("title", "90"), 0);
    EXPECT_EQ(quarterTurnsOf("rotate-eng", "90"), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RotationTest, CountsQuarterTurns) {
    EXPECT_EQ(quarterTurnsOf("0"), 0);
    EXPECT_EQ(quarterTurnsOf("90"), 1);
    EXPECT_EQ(quarterTurnsOf("180"), 2);
    EXPECT_EQ(quarterTurnsOf("270"), 3);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RotationTest, AddsOneFullTurnToANegativeTag) {
    EXPECT_EQ(quarterTurnsOf("-90"), 3);
    EXPECT_EQ(quarterTurnsOf("-180"), 2);
    EXPECT_EQ(quarterTurnsOf("-270"), 1);
    EXPECT_EQ(quarterTurnsOf("-360"), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RotationTest, AllowsASignLeadingBlanksAndZeros) {
    EXPECT_EQ(quarterTurnsOf("+180"), 2);
    EXPECT_EQ(quarterTurnsOf(" 90"), 1);
    EXPECT_EQ(quarterTurnsOf("\t\n -90"), 3);
    EXPECT_EQ(quarterTurnsOf("090"), 1) << "decimal, not octal";
    EXPECT_EQ(quarterTurnsOf("-0"), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RotationTest, FindsTheTagUnderAKeyInAnyCase) {
    EXPECT_EQ(quarterTurnsOf("Rotate", "90"), 1);
}

TEST_F(RotationTest, TakesAMalformedTagAsUprightAndLogsIt) {
    for (const std::string tag :
         {"450", "360", "-450", "45", "letters", "", " ", "90 ", "90.0", "0x5a", "- 90", "+-90",
          "2147483647", "-2147483648", "2147483648", "-2147483649", "99999999999999999999999"}) {
        log.clear();
        EXPECT_EQ(quarterTurnsOf(tag), 0) << tag;
        EXPECT_THAT(log.lines(),
                    ElementsAre(IsLogLine("root", 3,
                                          "Unable to parse video rotation metadata: \"" + tag +
                                              "\". Assuming no rotation")));
    }
}

TEST(ParseQuarterTurnsTest, RefusesWhatHasNoDigits) {
    for (const char* text : {"", " ", "letters", "- 90", "+-90", ".90"})
        EXPECT_EQ(
            thrownText<std::invalid_argument>([text] { (void)detail::parseQuarterTurns(text); }),
            "invalid stoi argument")
            << text;
}

TEST(ParseQuarterTurnsTest, RefusesNumbersBeyondAnInt) {
    for (const char* text :
         {"2147483648", "-2147483649", "99999999999999999999999", "-99999999999999999999999"})
        EXPECT_EQ(thrownText<std::out_of_range>([text] { (void)detail::parseQuarterTurns(text); }),
                  "stoi argument out of range")
            << text;
}

TEST(ParseQuarterTurnsTest, RefusesCharactersBehindTheDigits) {
    for (const char* text : {"90 ", "90.0", "0x5a", "90deg", "45 ", "90\n"})
        EXPECT_EQ(
            thrownText<std::invalid_argument>([text] { (void)detail::parseQuarterTurns(text); }),
            "unexpected rotation value format")
            << text;
}

TEST(ParseQuarterTurnsTest, RefusesAZeroCharacterBehindTheDigits) {
    const std::string text("90\0", 3);
    EXPECT_EQ(thrownText<std::invalid_argument>([&] { (void)detail::parseQuarterTurns(text); }),
              "unexpected rotation value format");
}

TEST(ParseQuarterTurnsTest, RefusesOtherAngles) {
    for (const char* text : {"45", "1", "360", "450", "-450", "-1", "2147483647", "-2147483648"})
        EXPECT_EQ(
            thrownText<std::invalid_argument>([text] { (void)detail::parseQuarterTurns(text); }),
            "invalid rotation value")
            << text;
}

} // namespace
} // namespace tio::ffmpeg
