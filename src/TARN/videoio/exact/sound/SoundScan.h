#pragma once

#include "exact/ProgressReport.h"
#include "exact/run/PacketSource.h"
#include "exact/sound/index/SoundIndexData.h"

namespace tio::ffmpeg::detail {

/// What one reading of all packets tells.
struct SoundScan {
    SoundIndexData index;     ///< without a format and times
    bool packetsTell = false; ///< how many samples there are; else the index has none yet
};

/// Reads all packets of a source that stands at its start.
[[nodiscard]] SoundScan scanSound(PacketSource& source, int stream, ProgressReport& progress);

} // namespace tio::ffmpeg::detail
