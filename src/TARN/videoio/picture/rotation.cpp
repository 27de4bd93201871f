#include "picture/rotation.h"

#include "base/checks.h"
#include "base/parseInteger.h"
#include "ffmpeg_compat.h"

#include <TARN/logging/log.h>
#include <TARN/videoio/Types.h>

#include <exception>
#include <stdexcept>

namespace tio::ffmpeg {

namespace detail {

int parseQuarterTurns(const std::string& value) {
    size_t used = 0;
    int degrees = parseInteger(value, &used);
    if (used != value.size())
        throw std::invalid_argument("unexpected rotation value format");
    if (degrees < 0)
        degrees += 360;
    switch (degrees) {
    case 0:
        return 0;
    case 90:
        return 1;
    case 180:
        return 2;
    case 270:
        return 3;
    default:
        throw std::invalid_argument("invalid rotation value");
    }
}

} // namespace detail

int getStreamRotation(const AVStream* stream) {
    if (stream->metadata == nullptr)
        return 0;
    const AVDictionaryEntry* tag = av_dict_get(stream->metadata, "rotate", nullptr, 0);
    if (tag == nullptr || tag->value == nullptr)
        return 0;
    try {
        return detail::parseQuarterTurns(tag->value);
    } catch (const std::exception&) {
        constexpr int levelMalformed = 3;
        log::_output(detail::rootLogger, static_cast<log::Level>(levelMalformed),
                     std::string("Unable to parse video rotation metadata: \"") + tag->value +
                         "\". Assuming no rotation");
        return 0;
    }
}

} // namespace tio::ffmpeg
