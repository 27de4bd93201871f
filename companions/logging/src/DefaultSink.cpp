#include "DefaultSink.h"

#include <algorithm>
#include <memory>
#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

namespace tio::log {

namespace {

using StandardError = spdlog::sinks::stderr_sink_mt;

// Not registered with spdlog: its registry belongs to the application. Never destroyed, because
// objects with static lifetime may still report something while the process ends.
const std::shared_ptr<StandardError>& standardError() {
    static const auto& sink = []() -> const std::shared_ptr<StandardError>& {
        auto* const created = new auto(std::make_shared<StandardError>());
        (*created)->set_pattern("[%Y-%m-%d %H:%M:%S.%e] [%n] [%l] %v");
        return *created;
    }();
    return sink;
}

spdlog::level::level_enum displayedLevel(Level level) {
    return level >= LevelFatal ? spdlog::level::critical : spdlog::level::err;
}

bool isUnprintable(char c) {
    const auto code = static_cast<unsigned char>(c);
    return (code < 0x20 && c != '\t' && c != '\n') || code == 0x7F;
}

} // namespace

std::string displayText(std::string_view text) {
    const auto last = text.find_last_not_of(std::string_view("\r\n\0", 3));
    std::string shown(text.substr(0, last == std::string_view::npos ? 0 : last + 1));
    std::replace_if(shown.begin(), shown.end(), isUnprintable, '?');
    return shown;
}

void writeToStandardError(const std::string& logger, Level level, const std::string& text) {
    if (level < LevelError)
        return;
    spdlog::logger(logger, standardError()).log(displayedLevel(level), displayText(text));
}

} // namespace tio::log
