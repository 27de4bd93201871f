#include "media/ClipFacts.h"

#include "media/ClipFrames.h"

#include <TARN/videoio/InputStream.h>

#include <limits>

namespace tio::tool {

namespace {

StreamFacts gatherStream(const Clip& clip, int index) {
    StreamFacts facts;
    facts.metadata = ffmpeg::metadataOf(*clip, index);
    if (clip->hasDurationOfStream(index))
        facts.duration = clip->getDurationOfStream(index);
    return facts;
}

int64_t countFrames(const Clip& clip, int stream, const InputOptions& input) {
    if (input.index && !isFrameIndex(*input.index)) {
        ffmpeg::InputStream packets(clip, stream);
        loadIndex(packets, input.index);
        return packets.getFrameCount();
    }
    ClipFrames frames(input, {}, {});
    if (!frames.frameCount())
        (void)frames.read(std::numeric_limits<int64_t>::max()); // to the end of a live source
    return *frames.frameCount();
}

} // namespace

ClipFacts gatherFacts(const InputOptions& input, bool count) {
    const Clip context = count || input.index ? openInput(input.url) : openOnce(input.url);
    ClipFacts facts;
    facts.file = input.url;
    facts.container = context->getContainerName();
    facts.ptsSeekable = context->isPtsSeekable();
    if (context->hasVideoStream() != 0)
        facts.bestVideo = context->findBestVideoStreamIndex();
    if (context->hasAudioStream() != 0)
        facts.bestAudio = context->findBestAudioStreamIndex();
    for (int index = 0; index < context->getStreamCount(); ++index)
        facts.streams.push_back(gatherStream(context, index));
    if (facts.bestVideo && (count || input.index)) {
        auto& frames = facts.streams[static_cast<size_t>(*facts.bestVideo)].frames;
        frames = countFrames(context, *facts.bestVideo, input);
    }
    return facts;
}

} // namespace tio::tool
