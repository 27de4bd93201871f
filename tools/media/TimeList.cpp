#include "media/TimeList.h"

#include "terminal/Failure.h"

#include <regex>
#include <sstream>

namespace tio::tool {

namespace {

using Rational = ffmpeg::Rational;

// Nine digits keep every product below 2^63; a time base is no finer, and no clip longer.
const std::regex fractionPattern(R"((-?\d{1,9})/(\d{1,9}))");
const std::regex clockPattern(R"((-?)(?:(?:(\d{1,4}):)?(\d{1,2}):)?(\d{1,9})(?:\.(\d{1,9}))?)");

int64_t number(const std::string& digits) {
    return digits.empty() ? 0 : std::stoll(digits);
}

Rational decimals(const std::string& digits) {
    int64_t divisor = 1;
    for (size_t i = 0; i < digits.size(); ++i)
        divisor *= 10;
    return {number(digits), divisor};
}

} // namespace

std::optional<Rational> parseTime(const std::string& text) {
    std::smatch part;
    if (std::regex_match(text, part, fractionPattern) && number(part[2]) != 0)
        return Rational(number(part[1]), number(part[2]));
    if (!std::regex_match(text, part, clockPattern))
        return std::nullopt;
    const int64_t seconds = (number(part[2]) * 60 + number(part[3])) * 60 + number(part[4]);
    const Rational time = Rational(seconds, 1) + decimals(part[5]);
    return part[1].length() > 0 ? -time : time;
}

std::vector<Rational> parseTimes(const std::string& list) {
    std::vector<Rational> times;
    std::istringstream texts(list);
    for (std::string text; std::getline(texts, text, ',');) {
        const auto time = parseTime(text);
        if (!time)
            throw Failure(ExitCode::Usage, "--times",
                          "\"" + text + "\" is no time; write 1.5, 2/3 or 00:01:02.5");
        times.push_back(*time);
    }
    return times;
}

} // namespace tio::tool
