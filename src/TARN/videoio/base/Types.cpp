#include "base/checks.h"

#include <TARN/videoio/Types.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace tio::ffmpeg {

const std::map<std::string, ImageFileType> typeExtensionMap = {
    {".jpeg", ImageFileType::Jpeg},
    {".jpg", ImageFileType::Jpeg},
    {".png", ImageFileType::Png},
    {".ppm", ImageFileType::Ppm},
};

namespace {

std::string lowerCaseExtension(const std::string& path) {
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos)
        throw std::out_of_range("invalid string position");
    std::string extension = path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

} // namespace

ImageFileType getImageFileType(const std::string& path) {
    const std::string extension = lowerCaseExtension(path);
    const auto row = typeExtensionMap.find(extension);
    if (row == typeExtensionMap.end())
        detail::failAssertion("Unknown image file type extension: " + extension,
                              "tio::ffmpeg::typeExtensionMap.count(extension)", {"Types", 34});
    return row->second;
}

} // namespace tio::ffmpeg
