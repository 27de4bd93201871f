#include "base/checks.h"

#include "ffmpeg_compat.h"

#include <TARN/core/Exception.h>
#include <TARN/logging/log.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace tio::ffmpeg::detail {

namespace {

constexpr int levelProgress = 1;
constexpr int levelAssertion = 4;
constexpr int levelFfmpegFailure = 5;

// What the file system answers is the caller's business (a wrong path, a full disk), not a fault to
// be traced: such failures carry no place and are not logged.
constexpr std::array<int, 8> fileSystemErrors = {AVERROR(EPERM),  AVERROR(ENOENT), AVERROR(EACCES),
                                                 AVERROR(EBUSY),  AVERROR(EISDIR), AVERROR(EMFILE),
                                                 AVERROR(ENOSPC), AVERROR(EROFS)};

bool isFileSystemError(int code) {
    return std::find(fileSystemErrors.begin(), fileSystemErrors.end(), code) !=
           fileSystemErrors.end();
}

void logLine(int level, const std::string& text) {
    log::_output(rootLogger, static_cast<log::Level>(level), text);
}

} // namespace

const std::string rootLogger = "root";

std::string ffmpegText(int code) {
    std::array<char, 1024> buffer{};
    av_strerror(code, buffer.data(), buffer.size());
    return buffer.data();
}

std::string Location::text() const {
    return R"(..\src\TARN\videoio\)" + std::string(file) + ":" + std::to_string(number);
}

void logProgress(const std::string& text) {
    logLine(levelProgress, text);
}

void logFailure(const std::string& text) {
    logLine(levelAssertion, text);
}

void throwFfmpegFailure(int code, Location location, const std::string* context) {
    std::string message = ffmpegText(code);
    if (context != nullptr)
        message += ": " + *context;
    if (isFileSystemError(code))
        throw Exception(message, code);
    message += " @ " + location.text();
    logLine(levelFfmpegFailure, message);
    throw Exception(message, code);
}

bool isOutOfMemory(const Exception& failure) noexcept {
    return failure.code() == AVERROR(ENOMEM);
}

void failPlainly(const std::string& message) {
    logLine(levelAssertion, message);
    throw tio::Exception(message);
}

void failAssertion(const std::string& message, const char* expression, Location location) {
    logLine(levelAssertion, message + " @ " + location.text());
    if (std::strcmp(expression, "false") != 0)
        logLine(levelAssertion, std::string("Assertion failed: ") + expression);
    throw tio::Exception(message);
}

} // namespace tio::ffmpeg::detail
