#include "binding.h"
#include "pixels.h"

#include <TARN/videoio/ReadImage.h>
#include <TARN/videoio/WriteImage.h>

#include <cstring>
#include <optional>
#include <pybind11/stl.h>

namespace tio::python {

namespace {

py::array_t<uint8_t> readImage(const ffmpeg::Source& source, bool upright) {
    const auto image = inLibrary([&] {
        return ffmpeg::readImageFrom(source, upright ? ffmpeg::ImageOrientation::Upright
                                                     : ffmpeg::ImageOrientation::AsStored);
    });
    constexpr py::ssize_t channels = 3;
    py::array_t<uint8_t> made({py::ssize_t{image.size[0]}, py::ssize_t{image.size[1]}, channels});
    std::memcpy(made.mutable_data(), image.data(), static_cast<std::size_t>(made.nbytes()));
    return made;
}

void writeImage(const std::string& path, const py::array& picture, int height, int width,
                std::optional<int> quality, std::optional<int> compression) {
    const PictureArray<const uint8_t> pictures(ffmpeg::PictureFormat::Rgb8, picture, height, width);
    ffmpeg::WriteImageOptions options;
    options.quality = quality;
    options.compression = compression;
    inLibrary([&] { ffmpeg::writeImage(path, pictures.at(0), options); });
}

} // namespace

void bindImages(py::module_& module) {
    module.def("read_image", &readImage, "uint8 (H, W, 3)");
    module.def("write_image", &writeImage);
}

} // namespace tio::python
