#include "media/ImageWriter.h"

#include "media/OutputFile.h"
#include "terminal/Failure.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/WriteImage.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace tio::tool {

namespace {

constexpr int usualCompression = -1; // the encoder's own choice

// The library's failure to write names the temporary file, which would tell the user nothing.
void encode(const tio::PixelFormat::RgbImage& picture, const std::string& path,
            ffmpeg::ImageFileType type) {
    errno = 0;
    try {
        ffmpeg::writeImage(path, picture, usualCompression, type);
    } catch (const ffmpeg::Exception&) {
        throw;
    } catch (const tio::Exception&) {
        if (errno == 0)
            throw;
        throw std::system_error(errno, std::generic_category());
    }
}

// Not flushed to the disk: thousands of pictures would wait for it thousands of times.
void writePicture(const tio::PixelFormat::RgbImage& picture, const std::string& path,
                  ffmpeg::ImageFileType type) {
    OutputFile file(path);
    file.makeWay();
    writing(path, [&] { encode(picture, file.pathToWrite(), type); });
    file.publish(OutputFile::Flush::BySystem);
}

} // namespace

ImageWriter imageWriter(ffmpeg::ImageFileType type) {
    return [type](const tio::PixelFormat::RgbImage& picture, const std::string& path) {
        writePicture(picture, path, type);
    };
}

ffmpeg::ImageFileType imageTypeOf(const std::string& path) {
    const auto known = ffmpeg::typeExtensionMap.find(
        CLI::detail::to_lower(std::filesystem::path(path).extension()));
    if (known == ffmpeg::typeExtensionMap.end())
        throw Failure(ExitCode::Usage, path,
                      "a picture is called .png, .jpg, .jpeg or .ppm at the end");
    return known->second;
}

std::string imageExtension(ffmpeg::ImageFileType type) {
    switch (type) {
    case ffmpeg::ImageFileType::Jpeg:
        return ".jpg";
    case ffmpeg::ImageFileType::Ppm:
        return ".ppm";
    default:
        return ".png";
    }
}

} // namespace tio::tool
