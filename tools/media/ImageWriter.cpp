#include "media/ImageWriter.h"

#include "media/OutputFile.h"
#include "terminal/Failure.h"
#include "terminal/Interruption.h"

#include <TARN/videoio/WriteImage.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <system_error>

namespace tio::tool {

namespace {

using ffmpeg::ImageFileType;
using ffmpeg::PictureFormat;

const std::map<std::string, ImageFormat>& formats() {
    static const ImageFormat png{ImageFileType::Png, PictureFormat::Rgb8, ".png"};
    static const ImageFormat png16{ImageFileType::Png, PictureFormat::Rgb16, ".png"};
    static const ImageFormat grey8{ImageFileType::Png, PictureFormat::Grey8, ".png"};
    static const ImageFormat grey16{ImageFileType::Png, PictureFormat::Grey16, ".png"};
    static const ImageFormat jpg{ImageFileType::Jpeg, PictureFormat::Rgb8, ".jpg"};
    static const ImageFormat ppm{ImageFileType::Ppm, PictureFormat::Rgb8, ".ppm"};
    static const ImageFormat ppm16{ImageFileType::Ppm, PictureFormat::Rgb16, ".ppm"};
    static const std::map<std::string, ImageFormat> byName = {
        {"png", png},     {"rgb8", png},    {"png16", png16},   {"rgb16", png16},
        {"grey8", grey8}, {"gray8", grey8}, {"grey16", grey16}, {"gray16", grey16},
        {"jpg", jpg},     {"jpeg", jpg},    {"ppm", ppm},       {"ppm16", ppm16}};
    return byName;
}

/// Whether a name stands for a file, or for none yet: a pipe may be waited for without end.
bool isFileToBe(const std::string& path) {
    std::error_code unreadable; // shows when the file is opened
    const auto existing = std::filesystem::status(path, unreadable);
    return std::filesystem::is_regular_file(existing) || !std::filesystem::exists(existing);
}

// The library writes under a hidden name and renames, as OutputFile does. It takes no longer than
// one picture, so that an interruption can wait for it.
void writePicture(const ffmpeg::ConstImageView& picture, const std::string& path,
                  ImageFileType type) {
    requireNotInput(path);
    std::optional<SignalsHeldBack> heldBack;
    if (isFileToBe(path))
        heldBack.emplace();
    ffmpeg::WriteImageOptions options;
    options.type = type;
    writing(path, [&] { ffmpeg::writeImage(path, picture, options); });
}

} // namespace

std::vector<std::string> imageFormatNames() {
    std::vector<std::string> names;
    for (const auto& [name, format] : formats())
        names.push_back(name);
    return names;
}

ImageFormat imageFormatNamed(const std::string& name) {
    return formats().at(name);
}

ImageFormat imageFormatOf(const std::string& path) {
    const std::string extension =
        CLI::detail::to_lower(std::filesystem::path(path).extension().string());
    const auto known = formats().find(extension.empty() ? extension : extension.substr(1));
    if (known == formats().end() || !ffmpeg::typeExtensionMap.count(extension))
        throw Failure(ExitCode::Usage, path,
                      "a picture is called .png, .jpg, .jpeg or .ppm at the end");
    return known->second;
}

ImageWriter imageWriter(const ImageFormat& format) {
    return [type = format.type](const ffmpeg::ConstImageView& picture, const std::string& path) {
        writePicture(picture, path, type);
    };
}

ffmpeg::ConstImageView viewOf(const tio::PixelFormat::RgbImage& picture) {
    ffmpeg::ConstImageView view;
    view.height = picture.rows();
    view.width = picture.cols();
    view.planes[0] = reinterpret_cast<const uint8_t*>(picture.data());
    view.strides[0] = std::ptrdiff_t{3} * picture.cols();
    return view;
}

tio::PixelFormat::RgbImage rgbOf(const ffmpeg::Image& picture) {
    auto owner = std::make_shared<ffmpeg::Image>(picture);
    auto* const pixels = reinterpret_cast<char*>(owner->data());
    return {tio::Vec<int, 2>(picture.height(), picture.width()),
            std::shared_ptr<char>(owner, pixels)};
}

ffmpeg::Image imageOf(const tio::PixelFormat::RgbImage& picture) {
    ffmpeg::Image image(PictureFormat::Rgb8, picture.rows(), picture.cols());
    const auto* bytes = reinterpret_cast<const uint8_t*>(picture.data());
    std::copy_n(bytes, image.byteCount(), image.data());
    return image;
}

} // namespace tio::tool
