#include "base/parseInteger.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace tio::ffmpeg::detail {

// std::stoi's rules with texts of our own, because those of the standard libraries differ.
int parseInteger(const std::string& text, size_t* used) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str())
        throw std::invalid_argument("invalid stoi argument");
    if (errno == ERANGE || value < std::numeric_limits<int>::min() ||
        value > std::numeric_limits<int>::max())
        throw std::out_of_range("stoi argument out of range");
    if (used != nullptr)
        *used = static_cast<size_t>(end - text.c_str());
    return static_cast<int>(value);
}

} // namespace tio::ffmpeg::detail
