#pragma once

#include "exact/ProgressReport.h"
#include "exact/run/PacketSource.h"
#include "exact/sound/SoundIndexData.h"

namespace tio::ffmpeg::detail {

/// Reads all packets of a source that stands at its start.
[[nodiscard]] SoundIndexData scanSound(PacketSource& source, int stream, ProgressReport& progress);

} // namespace tio::ffmpeg::detail
