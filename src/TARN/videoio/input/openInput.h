#pragma once

#include "base/Options.h"
#include "input/InputWatch.h"

#include <TARN/videoio/detail/Handles.h>

#include <string>

namespace tio::ffmpeg::detail {

/// What every "rtsp://" source is opened with.
void setTransportOptions(const std::string& url, Options& options);

/// Opens a source and reads what its streams are, under `watch`, which has to outlive it.
/// @throws as InputFormatContext does
[[nodiscard]] InputContextHandle openInput(const std::string& url, InputWatch& watch);

} // namespace tio::ffmpeg::detail
