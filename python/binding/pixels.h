#pragma once

#include <TARN/videoio/Image.h>

#include <pybind11/numpy.h>
#include <string>
#include <type_traits>

namespace tio::python {

namespace py = pybind11;

/// By the word that Python has for it.
/// @throws pybind11::value_error
[[nodiscard]] ffmpeg::PictureFormat formatOf(const std::string& word);

/// @throws pybind11::value_error where an array is not (count, rows, columns[, 3]) of such pictures
void requireFitting(ffmpeg::PictureFormat format, const py::array& array, int height, int width);

/// Pictures that lie in an array one after the other. A row of NV12 has room for whole pairs of
/// chroma, so it is a byte longer than the luma of an odd width.
template <typename Byte>
class PictureArray {
public:
    /// @param width  in pixels; the height follows from the rows
    /// @throws pybind11::value_error where the array is not for such pictures, or read-only
    PictureArray(ffmpeg::PictureFormat format, py::array array, int height, int width) {
        requireFitting(format, array, height, width);
        pictures = static_cast<std::size_t>(array.shape(0));
        distance = array.strides(0);
        first.format = format;
        first.height = height;
        first.width = width;
        if constexpr (std::is_const_v<Byte>)
            first.planes[0] = static_cast<Byte*>(array.data());
        else
            first.planes[0] = static_cast<Byte*>(array.mutable_data());
        first.strides[0] = array.strides(1);
        if (format == ffmpeg::PictureFormat::Nv12) {
            first.planes[1] = first.planes[0] + height * first.strides[0];
            first.strides[1] = first.strides[0];
        }
    }

    [[nodiscard]] std::size_t count() const noexcept { return pictures; }

    [[nodiscard]] ffmpeg::BasicImageView<Byte> at(std::size_t place) const {
        ffmpeg::BasicImageView<Byte> view = first;
        for (Byte*& plane : view.planes)
            plane = plane == nullptr ? nullptr : plane + static_cast<py::ssize_t>(place) * distance;
        return view;
    }

private:
    ffmpeg::BasicImageView<Byte> first;
    std::size_t pictures = 0;
    py::ssize_t distance = 0; // from one picture to the next, in bytes
};

} // namespace tio::python
