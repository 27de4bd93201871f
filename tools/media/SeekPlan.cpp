#include "media/SeekPlan.h"

namespace tio::tool {

namespace {

ffmpeg::InputStream bestVideoStream(const std::string& url) {
    auto context = openInput(url);
    const int index = context->findBestVideoStreamIndex();
    return {std::move(context), index};
}

} // namespace

SeekPlan::SeekPlan(const InputOptions& input) : packets(bestVideoStream(input.url)) {
    loadIndex(packets, input.index);
    times = packets.getFrameMsMap();
    packets.storeSeekingIndex(stored.path());
}

std::optional<int64_t> SeekPlan::cleanLandingFor(int64_t number) {
    // Looking for the key frame leaves the times of the packets looked at in the index.
    packets.loadSeekingIndex(stored.path());
    const int64_t landing = packets.seekToOrBefore(number);
    if (landing > number || !packets.startsWithKeyFrame())
        return std::nullopt;
    return landing;
}

} // namespace tio::tool
