#pragma once

#include "call.h"
#include "convert.h"

/// @file
/// The extension module: calls, conversions and errors, and nothing else. Arguments come checked
/// from the package's own Python, which is its only user.

namespace tio::python {

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
