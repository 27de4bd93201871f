#include "output/pauses.h"

#include "ffmpeg_compat.h"

#include <iomanip>
#include <limits>
#include <sstream>

namespace tio::ffmpeg::detail {

namespace {

constexpr int64_t mostTicks = std::numeric_limits<int32_t>::max() - int64_t{2}; // both ends rounded
constexpr int64_t otherTicksPerSecond = 90000; // in which FFmpeg counts unless it is told otherwise

} // namespace

Rational longestPause(const AVCodecParameters& parameters) {
    const bool sound = parameters.codec_type == AVMEDIA_TYPE_AUDIO && parameters.sample_rate > 0;
    return Rational(mostTicks, sound ? parameters.sample_rate : otherTicksPerSecond);
}

void requireShortPause(Rational pause, Rational longest, const std::string& path,
                       Location location) {
    if (pause <= longest)
        return;
    std::ostringstream message;
    message << std::fixed << std::setprecision(3) << "A pause of " << pause.toDouble()
            << " s is too long for \"" << path << "\": MP4 takes up to " << longest.toDouble()
            << " s in this stream";
    failAssertion(message.str(), "pause <= longest", location);
}

} // namespace tio::ffmpeg::detail
