// Drives one file through every way into the library and compares with FFmpeg called directly:
//   tarn_survey FILE [FIRST]
// prints NUMBER,"ENTRY POINT",begun before and NUMBER,"ENTRY POINT",OUTCOME,"NOTE",SECONDS after
// each, so that whoever watches knows where the program ended. FIRST is the number to begin with,
// SECONDS what the library took.

#include "Survey.h"
#include "support/TemporaryFolder.h"

#include <TARN/logging/log.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

namespace {

/// A field of comma-separated values.
std::string quoted(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == '"'; }, ' ');
    constexpr std::size_t longest = 300;
    return '"' + text.substr(0, longest) + '"';
}

std::string secondsText(tio::survey::LibraryClock::Duration time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", time.count());
    return text;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: tarn_survey FILE [FIRST]\n";
        return 2;
    }
    tio::log::setSink([](const auto&, auto, const auto&) {});
    std::cerr.rdbuf(nullptr); // the lines that damaged packets leave there
    const std::vector<tio::survey::EntryPoint>& all = tio::survey::entryPoints();
    const tio::test::TemporaryFolder folder;
    tio::survey::LibraryClock& clock = tio::survey::LibraryClock::instance();
    for (std::size_t i = argc > 2 ? std::stoul(argv[2]) : 0; i < all.size(); ++i) {
        const std::string begin = std::to_string(i) + ',' + quoted(all[i].name) + ',';
        std::cout << begin << "begun" << std::endl;
        clock.restart();
        const auto verdict = all[i].examine(argv[1], folder.path().string());
        std::cout << begin << nameOf(verdict.outcome) << ',' << quoted(verdict.note) << ','
                  << secondsText(clock.elapsed()) << std::endl;
    }
}
