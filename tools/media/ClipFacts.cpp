#include "media/ClipFacts.h"

#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <utility>

namespace tio::tool {

namespace {

// Which way round the size is that the container query gives depends on how the rotation tag is
// written. The decoder always knows, so it is asked where it matters and can be.
Size uprightSize(const std::string& url, Size shown) {
    try {
        ffmpeg::VideoStreamDecoder decoder(openInput(url), ffmpeg::PixelFormat::RGB);
        const auto size = decoder.getFrameSize();
        return {size[1], size[0]};
    } catch (const std::exception&) {
        return shown;
    }
}

void gatherSizes(const Clip& context, const std::string& url, int index, bool best,
                 StreamFacts& facts) {
    const int quarterTurns = ffmpeg::getStreamRotation(context->getStream(index));
    facts.rotation = quarterTurns * 90;
    Size shown;
    if (!context->getResolutionOfStream(index, shown.width, shown.height) || shown.width <= 0 ||
        shown.height <= 0)
        return;
    const bool sidesChangePlaces = quarterTurns % 2 != 0;
    if (sidesChangePlaces && best)
        shown = uprightSize(url, shown);
    facts.uprightSize = shown;
    if (sidesChangePlaces)
        std::swap(shown.width, shown.height);
    facts.codedSize = shown;
}

StreamFacts gatherStream(const Clip& context, const std::string& url, int index, bool best) {
    StreamFacts facts;
    facts.type = context->getTypeOfStream(index);
    facts.codec = context->getCodecNameOfStream(index);
    facts.timeBase = ffmpeg::InputStream(context, index).getUnitTime();
    if (context->hasDurationOfStream(index) && facts.timeBase.denominator != 0)
        facts.duration = context->getDurationOfStream(index);
    if (facts.type == ffmpeg::StreamType::Video)
        gatherSizes(context, url, index, best, facts);
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
        facts.streams.push_back(gatherStream(context, input.url, index, index == facts.bestVideo));
    if (facts.bestVideo && (count || input.index)) {
        auto& frames = facts.streams[static_cast<size_t>(*facts.bestVideo)].frames;
        frames = countFrames(context, *facts.bestVideo, input);
    }
    return facts;
}

} // namespace tio::tool
