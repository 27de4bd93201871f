#include "pixels.h"

#include "binding.h"

namespace tio::python {

using ffmpeg::PictureFormat;

namespace {

py::ssize_t rowsOf(PictureFormat format, int height) {
    return format == PictureFormat::Nv12 ? height + (height + 1) / 2 : height;
}

py::ssize_t columnsOf(PictureFormat format, int width) {
    return format == PictureFormat::Nv12 ? width + width % 2 : width;
}

void require(bool fits) {
    if (!fits)
        throw py::value_error("an array of another kind or size than the pictures have");
}

} // namespace

// Rows lie anywhere, the pixels of one side by side.
void requireFitting(PictureFormat format, const py::array& array, int height, int width) {
    const py::ssize_t bytes = ffmpeg::bitDepth(format) > 8 ? 2 : 1;
    const py::ssize_t channels = ffmpeg::channelCount(format);
    require(array.itemsize() == bytes && array.ndim() == (channels == 3 ? 4 : 3));
    require(array.shape(1) == rowsOf(format, height) && array.shape(2) == columnsOf(format, width));
    require(array.strides(2) == bytes * channels || array.shape(2) == 1);
    require(channels == 1 || (array.shape(3) == channels && array.strides(3) == bytes));
    require(format != PictureFormat::Nv12 || array.strides(1) >= array.shape(2));
}

PictureFormat formatOf(const std::string& word) {
    return valueOf<PictureFormat>(word, {{PictureFormat::Rgb8, "rgb24"},
                                         {PictureFormat::Rgb16, "rgb48"},
                                         {PictureFormat::Grey8, "gray8"},
                                         {PictureFormat::Grey16, "gray16"},
                                         {PictureFormat::Nv12, "nv12"}});
}

} // namespace tio::python
