#pragma once

#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <typeinfo>

namespace tio::test {

/// Text of what `call` throws, which must be of exactly the type `Expected`: handlers tell the
/// failures of FFmpeg from the library's own by their type.
template <typename Expected, typename Call>
std::string thrownText(Call&& call) {
    try {
        call();
    } catch (const std::exception& failure) {
        EXPECT_STREQ(typeid(failure).name(), typeid(Expected).name()) << failure.what();
        return failure.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

/// A fraction of exactly these two numbers: fractions are reduced and keep their signs, so that
/// comparing values would not be enough.
MATCHER_P2(IsFraction, numerator, denominator,
           std::string(negation ? "is not " : "is ") + std::to_string(numerator) + "/" +
               std::to_string(denominator)) {
    *result_listener << "which is " << arg.numerator << "/" << arg.denominator;
    return arg.numerator == numerator && arg.denominator == denominator;
}

/// A line of a LogCapture.
MATCHER_P3(IsLogLine, logger, level, text,
           std::string(negation ? "is not" : "is") + " \"" + text + "\" of \"" + logger +
               "\" at level " + std::to_string(level)) {
    *result_listener << "which is \"" << arg.text << "\" of \"" << arg.logger << "\" at level "
                     << arg.level;
    return arg.logger == logger && arg.level == level && arg.text == text;
}

} // namespace tio::test
