#include "media/ClipFacts.h"

#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/VideoStreamDecoder.h>

namespace tio::tool {

namespace {

StreamFacts gatherStream(const Clip& clip, int index) {
    StreamFacts facts;
    facts.metadata = ffmpeg::metadataOf(*clip, index);
    if (clip->hasDurationOfStream(index))
        facts.duration = clip->getDurationOfStream(index);
    return facts;
}

// Each picture has to be decoded where the clip cannot be read again for them.
int64_t countPictures(const Clip& clip) {
    ffmpeg::VideoStreamDecoder decoder(clip, ffmpeg::PixelFormat::NV12);
    int64_t count = 0;
    while (decoder.readNextFrame().frame)
        ++count;
    return count;
}

int64_t countFrames(const Clip& clip, int stream, const InputOptions& input) {
    if (const auto index = storedFrameIndex(input, clip))
        return index->frameCount();
    if (input.index) {
        ffmpeg::InputStream packets(clip, stream);
        loadIndex(packets, input.index);
        return packets.getFrameCount();
    }
    return reading(input.url, [&] {
        return canBeReadAgain(input.url) ? ffmpeg::FrameIndex::build(clip).frameCount()
                                         : countPictures(clip);
    });
}

} // namespace

ClipFacts gatherFacts(const InputOptions& input, bool count) {
    const Clip context = openInput(input.url);
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
