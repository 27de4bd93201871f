#include "PpmSamples.h"

#include <TARN/core/Exception.h>
#include <TARN/imageio/ppm.h>

#include <cstring>
#include <limits>

namespace tio {

namespace {

using Image = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;
using detail::failPpm;
using detail::readNumber;

enum class Kind { Plain, Binary };

struct Header {
    Kind kind = Kind::Binary;
    Vec<int, 2> size; // (height, width)
    int highest = 0;
};

Kind readKind(std::istream& stream) {
    const int letter = stream.get();
    const int digit = stream.get();
    const bool known = letter == 'P' && (digit == '6' || digit == '3');
    if (!known || detail::isDigit(stream.peek()))
        failPpm("the image begins with neither P6 nor P3");
    return digit == '6' ? Kind::Binary : Kind::Plain;
}

Header readHeader(std::istream& stream) {
    constexpr int most = std::numeric_limits<int>::max();
    constexpr int mostHighest = 65535;
    Header header;
    header.kind = readKind(stream);
    const int width = readNumber(stream, most, "width");
    const int height = readNumber(stream, most, "height");
    header.highest = readNumber(stream, mostHighest, "maximum");
    if (width == 0 || height == 0)
        failPpm("the image has no pixels");
    if (height > most / width)
        failPpm("the image has too many pixels: " + std::to_string(width) + " x " +
                std::to_string(height));
    if (header.highest == 0)
        failPpm("the maximum is 0");
    header.size = {height, width};
    return header;
}

Image readImage(std::istream& stream) {
    const Header header = readHeader(stream);
    const auto count =
        3 * static_cast<std::size_t>(header.size[0]) * static_cast<std::size_t>(header.size[1]);
    const auto samples = header.kind == Kind::Plain
                             ? detail::readPlainSamples(stream, count, header.highest)
                             : detail::readBinarySamples(stream, count, header.highest);
    Image image(header.size);
    std::memcpy(image.data(), samples.data(), samples.size());
    return image;
}

} // namespace

Image readPpm(std::istream& stream) {
    try {
        if (!stream)
            failPpm("the stream cannot be read");
        return readImage(stream);
    } catch (const std::ios_base::failure&) { // of a stream that was told to throw
        failPpm("the image breaks off");
    }
}

} // namespace tio
