#pragma once

#include "exact/ProgressReport.h"
#include "exact/index/IndexData.h"
#include "exact/run/PacketSource.h"

namespace tio::ffmpeg::detail {

/// What one reading of all packets shows.
struct PacketScan {
    IndexData index;          ///< without frames
    bool damaged = false;     ///< a packet is not whole, or flagged so
    bool fieldsApart = false; ///< two packets may give one picture
};

/// Reads all packets of a source that stands at its start.
[[nodiscard]] PacketScan scanPackets(PacketSource& source, int stream, ProgressReport& progress);

/// Numbers the pictures by the packets' times.
/// @returns false when those do not do: a picture has none, or shares it with another
[[nodiscard]] bool orderByTimes(IndexData& index);

/// Gives each picture a time where packets have none, or have given two pictures.
void fillTimes(IndexData& index);

} // namespace tio::ffmpeg::detail
