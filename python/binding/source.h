#pragma once

#include "call.h"

#include <TARN/videoio/FrameIndexOptions.h>
#include <TARN/videoio/OpenOptions.h>
#include <TARN/videoio/Source.h>

#include <pybind11/pybind11.h>
#include <type_traits>

namespace tio::python {

/// Has what waits for a source look at Python's signals.
template <typename Options>
void listenToSignals(Options& options) {
    using Token = decltype(options.cancelToken);
    if constexpr (std::is_constructible_v<Token, decltype(&callShallEnd)>)
        options.cancelToken = Token(&callShallEnd);
}

/// The callback of making an index: a Python function of (step, done, total), or None. What it
/// raises ends the making, as signals do.
[[nodiscard]] ffmpeg::IndexProgressCallback progressOf(const py::object& function);

} // namespace tio::python
