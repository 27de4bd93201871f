#include "PpmFile.h"

#include "support/ByteEdits.h"
#include "support/Picture.h"

#include <sstream>
#include <stdexcept>

namespace tio::test {

PpmPicture readPpmFile(const std::string& path) {
    const std::vector<uint8_t> bytes = readBytes(path);
    std::istringstream file(std::string(bytes.begin(), bytes.end()));
    std::string magic;
    PpmPicture picture;
    int highest = 0;
    file >> magic >> picture.width >> picture.height >> highest;
    const bool headerEnds = file.get() == '\n';
    if (magic != "P6" || highest != 255 || !headerEnds)
        throw std::runtime_error("no binary PPM of 8 bits: " + path);
    const auto start = static_cast<size_t>(file.tellg());
    picture.pixels.assign(bytes.begin() + static_cast<std::ptrdiff_t>(start), bytes.end());
    if (picture.pixels.size() !=
        size_t{3} * static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height))
        throw std::runtime_error("not as many bytes as the size asks for: " + path);
    return picture;
}

int pictureNumberIn(const std::string& path, int quarterTurns) {
    const PpmPicture picture = readPpmFile(path);
    return readPictureNumber(picture.pixels.data(), picture.width, picture.height, quarterTurns);
}

} // namespace tio::test
