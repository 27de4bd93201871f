#include "exact/videoStream.h"

#include "base/checks.h"
#include "ffmpeg_compat.h"

#include <string>

namespace tio::ffmpeg::detail {

int videoStreamOf(const InputFormatContext& input, std::optional<int> number) {
    if (!number)
        return input.findBestVideoStreamIndex();
    const bool there = *number >= 0 && *number < input.getStreamCount();
    if (!there || input.getStream(*number)->codecpar->codec_type != AVMEDIA_TYPE_VIDEO)
        failPlainly("Stream " + std::to_string(*number) + " of \"" + input.getUrl() + "\" " +
                    (there ? "is no video" : "does not exist"));
    return *number;
}

} // namespace tio::ffmpeg::detail
