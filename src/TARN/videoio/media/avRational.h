#pragma once

#include "ffmpeg_compat.h"

#include <TARN/videoio/Packet.h>

namespace tio::ffmpeg::detail {

/// FFmpeg's fraction, narrowed to 32 bits.
[[nodiscard]] inline AVRational toAvRational(const Rational& value) {
    return {static_cast<int>(value.numerator), static_cast<int>(value.denominator)};
}

} // namespace tio::ffmpeg::detail
