#include "pixels.h"

#include <type_traits>

namespace tio::python {

using ffmpeg::PictureFormat;

namespace {

bool isColour(PictureFormat format) {
    return format == PictureFormat::Rgb8 || format == PictureFormat::Rgb16;
}

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

// Rows lie anywhere, the pixels of one side by side.
void requireFitting(PictureFormat format, const py::array& array, int height, int width) {
    const py::ssize_t bytes = ffmpeg::bitDepth(format) > 8 ? 2 : 1;
    const py::ssize_t channels = isColour(format) ? 3 : 1;
    require(array.itemsize() == bytes && array.ndim() == (isColour(format) ? 4 : 3));
    require(array.shape(1) == rowsOf(format, height) && array.shape(2) == columnsOf(format, width));
    require(array.strides(2) == bytes * channels || array.shape(2) == 1);
    require(!isColour(format) || (array.shape(3) == channels && array.strides(3) == bytes));
    require(format != PictureFormat::Nv12 || array.strides(1) >= array.shape(2));
}

} // namespace

PictureFormat formatOf(const std::string& word) {
    if (word == "rgb24")
        return PictureFormat::Rgb8;
    if (word == "rgb48")
        return PictureFormat::Rgb16;
    if (word == "gray8")
        return PictureFormat::Grey8;
    if (word == "gray16")
        return PictureFormat::Grey16;
    if (word == "nv12")
        return PictureFormat::Nv12;
    throw py::value_error("there is no format \"" + word + "\"");
}

template <typename Byte>
PictureArray<Byte>::PictureArray(PictureFormat format, const py::array& array, int height,
                                 int width) {
    requireFitting(format, array, height, width);
    first.format = format;
    first.height = height;
    first.width = width;
    if constexpr (std::is_const_v<Byte>)
        first.planes[0] = static_cast<Byte*>(array.data());
    else
        first.planes[0] = static_cast<Byte*>(py::array(array).mutable_data());
    first.strides[0] = array.strides(1);
    if (format == PictureFormat::Nv12) {
        first.planes[1] = first.planes[0] + height * first.strides[0];
        first.strides[1] = first.strides[0];
        hasMargin = width % 2 != 0;
    }
    pictures = static_cast<std::size_t>(array.shape(0));
    distance = array.strides(0);
}

template <typename Byte>
ffmpeg::BasicImageView<Byte> PictureArray<Byte>::at(std::size_t place) const {
    ffmpeg::BasicImageView<Byte> view = first;
    const py::ssize_t offset = static_cast<py::ssize_t>(place) * distance;
    for (Byte*& plane : view.planes)
        plane = plane == nullptr ? nullptr : plane + offset;
    return view;
}

template <typename Byte>
void PictureArray<Byte>::fillMargin([[maybe_unused]] std::size_t place) const {
    if constexpr (!std::is_const_v<Byte>) {
        if (!hasMargin)
            return;
        const ffmpeg::ImageView view = at(place);
        for (int row = 0; row < view.height; ++row) {
            uint8_t* end = view.planes[0] + row * view.strides[0] + view.width;
            *end = *(end - 1);
        }
    }
}

template class PictureArray<uint8_t>;
template class PictureArray<const uint8_t>;

} // namespace tio::python
