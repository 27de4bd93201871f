#include "PpmSamples.h"

#include <TARN/core/Exception.h>

#include <algorithm>

namespace tio::detail {

namespace {

constexpr int endOfFile = std::istream::traits_type::eof();

// What a header announces may not be there, so nothing larger than this is taken in advance.
constexpr std::size_t pieceSamples = std::size_t{1} << 20;

bool isBlank(int character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

uint8_t scaled(int sample, int highest) {
    if (sample > highest)
        failPpm("a sample of " + std::to_string(sample) + " exceeds the maximum of " +
                std::to_string(highest));
    return static_cast<uint8_t>((sample * 255 + highest / 2) / highest);
}

// Overwrites `raw` with the next samples, each of one byte or of two.
void readPiece(std::istream& stream, std::vector<char>& raw, std::size_t bytes) {
    raw.resize(bytes);
    stream.read(raw.data(), static_cast<std::streamsize>(bytes));
    if (stream.gcount() != static_cast<std::streamsize>(bytes))
        failPpm("the image breaks off");
}

} // namespace

void failPpm(const std::string& reason) {
    throw Exception("PPM: " + reason);
}

int nextCharacter(std::istream& stream) {
    int character = stream.get();
    if (character != '#')
        return character;
    while (character != endOfFile && character != '\n' && character != '\r')
        character = stream.get();
    return character;
}

int readNumber(std::istream& stream, int most, const char* what) {
    int character = nextCharacter(stream);
    while (isBlank(character))
        character = nextCharacter(stream);
    if (character == endOfFile)
        failPpm("the image breaks off");
    if (!isDigit(character))
        failPpm(std::string("the ") + what + " is not a number");
    int number = 0;
    for (; isDigit(character); character = nextCharacter(stream)) {
        const int digit = character - '0';
        if (number > (most - digit) / 10)
            failPpm(std::string("the ") + what + " exceeds " + std::to_string(most));
        number = 10 * number + digit;
    }
    if (character != endOfFile && !isBlank(character))
        failPpm(std::string("the ") + what + " is not a number");
    return number;
}

std::vector<uint8_t> readPlainSamples(std::istream& stream, std::size_t count, int highest) {
    constexpr int mostOfAnySample = 65535;
    std::vector<uint8_t> samples;
    samples.reserve(std::min(count, pieceSamples));
    while (samples.size() < count)
        samples.push_back(scaled(readNumber(stream, mostOfAnySample, "sample"), highest));
    return samples;
}

std::vector<uint8_t> readBinarySamples(std::istream& stream, std::size_t count, int highest) {
    const std::size_t sampleBytes = highest > 255 ? 2 : 1;
    std::vector<uint8_t> samples;
    std::vector<char> raw;
    while (samples.size() < count) {
        const std::size_t piece = std::min(count - samples.size(), pieceSamples);
        readPiece(stream, raw, piece * sampleBytes);
        for (std::size_t i = 0; i < raw.size(); i += sampleBytes) {
            int sample = static_cast<uint8_t>(raw[i]);
            if (sampleBytes == 2)
                sample = sample << 8 | static_cast<uint8_t>(raw[i + 1]);
            samples.push_back(scaled(sample, highest));
        }
    }
    return samples;
}

} // namespace tio::detail
