#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>
#include <vector>

namespace tio::detail {

[[noreturn]] void failPpm(const std::string& reason);

[[nodiscard]] inline bool isDigit(int character) noexcept {
    return character >= '0' && character <= '9';
}

/// The next character, where a comment counts as the end of its line.
/// @returns the end-of-file value at the end
[[nodiscard]] int nextCharacter(std::istream& stream);

/// A whole number in decimal digits, blanks and comments before it passed over. The character that
/// ends it is taken too.
/// @throws tio::Exception when there is none or it is larger than `most`
[[nodiscard]] int readNumber(std::istream& stream, int most, const char* what);

/// Samples of 0 to `highest` as 8 bits each.
[[nodiscard]] std::vector<uint8_t> readPlainSamples(std::istream& stream, std::size_t count,
                                                    int highest);
[[nodiscard]] std::vector<uint8_t> readBinarySamples(std::istream& stream, std::size_t count,
                                                     int highest);

} // namespace tio::detail
