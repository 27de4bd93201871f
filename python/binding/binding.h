#pragma once

#include <TARN/core/Rational.h>
#include <TARN/videoio/FrameDigest.h>

#include <cstdint>
#include <pybind11/pybind11.h>
#include <utility>

/// @file
/// The extension module: calls, conversions and errors, and nothing else. Arguments come checked
/// from the package's own Python, which is its only user.

namespace tio::python {

namespace py = pybind11;

/// A fraction on its way from or to Python.
using Pair = std::pair<int64_t, int64_t>;
using Seconds = tio::Rational<1, int64_t>;

inline Pair pairOf(const Seconds& value) {
    return {value.numerator, value.denominator};
}

py::bytes bytesOf(const ffmpeg::FrameDigest& digest);

void bindFailures(py::module_& module);
void bindLog(py::module_& module);
void bindSound(py::module_& module);
void bindSources(py::module_& module);
void bindImages(py::module_& module);
void bindIndices(py::module_& module);
void bindMedia(py::module_& module);
void bindReaders(py::module_& module);
void bindWriters(py::module_& module);

} // namespace tio::python
