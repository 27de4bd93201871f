#pragma once

#include <TARN/videoio/Image.h>

#include <cstdint>
#include <pybind11/numpy.h>
#include <string>

namespace tio::python {

namespace py = pybind11;

/// By the word that Python has for it.
/// @throws pybind11::value_error
[[nodiscard]] ffmpeg::PictureFormat formatOf(const std::string& word);

/// Pictures that lie in an array one after the other: (count, rows, columns[, 3]). A row of NV12
/// has room for whole pairs of chroma, so it is a byte longer than the luma of an odd width.
template <typename Byte>
class PictureArray {
public:
    /// @param width  in pixels; the height follows from the rows
    /// @throws pybind11::value_error where the array is not for such pictures
    PictureArray(ffmpeg::PictureFormat format, const py::array& array, int height, int width);

    [[nodiscard]] std::size_t count() const noexcept { return pictures; }
    [[nodiscard]] ffmpeg::BasicImageView<Byte> at(std::size_t place) const;

    /// Fills the byte that is left at the end of the rows of NV12 with its neighbour.
    void fillMargin(std::size_t place) const;

private:
    ffmpeg::BasicImageView<Byte> first;
    std::size_t pictures = 0;
    py::ssize_t distance = 0; // from one picture to the next, in bytes
    bool hasMargin = false;
};

extern template class PictureArray<uint8_t>;
extern template class PictureArray<const uint8_t>;

} // namespace tio::python
