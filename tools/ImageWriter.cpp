#include "ImageWriter.h"

#include "Failure.h"
#include "OutputFile.h"

namespace tio::tool {

namespace {

void writePpm(const tio::PixelFormat::RgbImage& picture, const std::string& path) {
    const std::string header =
        "P6\n" + std::to_string(picture.cols()) + ' ' + std::to_string(picture.rows()) + "\n255\n";
    OutputFile file(path);
    file.write(header.data(), header.size());
    file.write(picture.data(), static_cast<size_t>(picture.count) * sizeof *picture.data());
    file.publish();
}

} // namespace

ImageWriter imageWriter(ffmpeg::ImageFileType type, const std::string& output) {
    if (type == ffmpeg::ImageFileType::Ppm)
        return writePpm;
    throw Failure(ExitCode::Usage, output,
                  "this version writes pictures as ppm only; use --format ppm");
}

} // namespace tio::tool
