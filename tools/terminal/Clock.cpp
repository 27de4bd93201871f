#include "terminal/Clock.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace tio::tool {

std::string clockText(double seconds, ClockPrecision precision) {
    const bool fraction = precision == ClockPrecision::Milliseconds;
    const long long units = std::llround(seconds * (fraction ? 1000 : 1));
    const long long milliseconds = fraction ? std::llabs(units) % 1000 : 0;
    const long long whole = fraction ? std::llabs(units) / 1000 : std::llabs(units);
    char text[64];
    if (whole >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                      whole % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    std::string clock = units < 0 ? std::string("-") + text : text;
    if (fraction) {
        std::snprintf(text, sizeof text, ".%03lld", milliseconds);
        clock += text;
    }
    return clock;
}

} // namespace tio::tool
