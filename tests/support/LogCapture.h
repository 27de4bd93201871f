#pragma once

#include <TARN/logging/log.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tio::test {

/// One message as it was reported.
struct LogLine {
    std::string logger;
    int level;
    std::string text;
};

/// Keeps all messages that are reported while it lives, from whichever thread, and keeps them off
/// the screen. There is one sink per process, so only one capture is alive at a time.
class LogCapture {
public:
    LogCapture() {
        log::setSink(
            [kept = store](const std::string& logger, log::Level level, const std::string& text) {
                const std::lock_guard<std::mutex> guard(kept->mutex);
                kept->lines.push_back({logger, static_cast<int>(level), text});
            });
    }
    ~LogCapture() { log::setSink({}); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] std::vector<LogLine> lines() const {
        const std::lock_guard<std::mutex> guard(store->mutex);
        return store->lines;
    }

    /// The texts at a level, in the order in which they came.
    [[nodiscard]] std::vector<std::string> linesAt(int level) const {
        std::vector<std::string> texts;
        for (const LogLine& line : lines()) {
            if (line.level == level)
                texts.push_back(line.text);
        }
        return texts;
    }

    /// How many messages hold `part` somewhere in their text.
    [[nodiscard]] std::size_t count(const std::string& part) const {
        const std::vector<LogLine> all = lines();
        return static_cast<std::size_t>(
            std::count_if(all.begin(), all.end(), [&part](const LogLine& line) {
                return line.text.find(part) != std::string::npos;
            }));
    }

    [[nodiscard]] bool contains(const std::string& part) const { return count(part) > 0; }

    /// Whether exactly this message came.
    [[nodiscard]] bool contains(const std::string& logger, int level,
                                const std::string& text) const {
        const std::vector<LogLine> all = lines();
        return std::any_of(all.begin(), all.end(), [&](const LogLine& line) {
            return line.logger == logger && line.level == level && line.text == text;
        });
    }

    /// Forgets what came so far.
    void clear() {
        const std::lock_guard<std::mutex> guard(store->mutex);
        store->lines.clear();
    }

private:
    // Shared with the sink: a call under way on another thread may outlive the capture.
    struct Store {
        std::mutex mutex;
        std::vector<LogLine> lines;
    };
    std::shared_ptr<Store> store = std::make_shared<Store>();
};

} // namespace tio::test
