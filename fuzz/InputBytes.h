#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace tio::fuzz {

/// Takes an input apart, from its first byte to its last; past the end there are zeros.
class InputBytes {
public:
    InputBytes(const uint8_t* firstByte, size_t count) : next(firstByte), left(count) {}

    [[nodiscard]] bool atEnd() const { return left == 0; }

    uint8_t byte() {
        if (left == 0)
            return 0;
        --left;
        return *next++;
    }

    /// Lowest byte first.
    template <typename T>
    T number() {
        uint64_t value = 0;
        for (size_t i = 0; i < sizeof(T); ++i)
            value |= uint64_t{byte()} << (8 * i);
        return static_cast<T>(value);
    }

    /// Up to a line end, which is taken as well, or the end.
    std::string line() {
        const auto* end = std::find(next, next + left, uint8_t{'\n'});
        std::string text(next, end);
        left -= text.size();
        next = end;
        (void)byte();
        return text;
    }

private:
    const uint8_t* next;
    size_t left;
};

} // namespace tio::fuzz
