#pragma once

#include <TARN/logging/Export.h>

#include <functional>
#include <string>

/// Messages of the libraries of this family, on their way to whoever wants to see them.
///
/// A message has a logger (the name of its source, such as "root" or "ffmpeg"), a level and a text.
/// It goes to one sink per process: standard error at first, or what the application sets.
///
/// Thread rule: every function may be called from any thread at any time, static destructors
/// included.
namespace tio::log {

/// How serious a message is. The numbers are stable; levels are compared and printed as integers,
/// which is why this enumeration is not a scoped one.
enum Level : int {
    LevelTrace = 0,   ///< Details for developers.
    LevelInfo = 1,    ///< Progress notes.
    LevelWarning = 2, ///< Odd, but the work goes on.
    LevelError = 3,   ///< Something did not work out, such as a damaged picture.
    LevelFailure = 4, ///< A check of a library failed; an exception follows.
    LevelFatal = 5,   ///< A call into a foreign library failed; an exception follows.
};

/// Receives messages. It is called on the thread that reports, without a lock: several threads may
/// be inside it at once. It may itself call any function of this namespace.
using Sink = std::function<void(const std::string& logger, Level level, const std::string& text)>;

/// Passes one message to the sink, whatever its level: what to show is the sink's decision.
///
/// Never throws. Messages come from threads of foreign C libraries and from code that is about to
/// report a failure; an exception of the sink would harm both, so it is dropped with its message.
TARN_LOGGING_API void _output(const std::string& logger, Level level,
                              const std::string& text) noexcept;

/// The level up to which sources that produce many messages need to bother: one of them may skip a
/// message whose level lies above it. `LevelFatal` at first, so nothing is skipped.
[[nodiscard]] TARN_LOGGING_API Level getLevel() noexcept;

/// Sets what `getLevel()` returns. It does not filter `_output`.
TARN_LOGGING_API void setLevel(Level level) noexcept;

/// Sends all further messages to `sink`. A call that is under way on another thread may still reach
/// the sink before. An empty function restores the default sink, which writes messages from
/// `LevelError` up to standard error, without the line ends and zero characters at their end.
TARN_LOGGING_API void setSink(Sink sink);

} // namespace tio::log
