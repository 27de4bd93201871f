#include "media/ClipFrames.h"

#include <TARN/videoio/InputStream.h>

#include <utility>

namespace tio::tool {

ClipFrames::ClipFrames(InputOptions input_, const Warn& warn)
    : input(std::move(input_)), opened(openInput(input.url)) {
    reading(input.url, [&] {
        const int stream = opened->findBestVideoStreamIndex();
        tick = ffmpeg::InputStream(opened, stream).getUnitTime();
        if (canBeReadAgain(input.url) || input.index)
            openFrames(warn);
        else
            decoder =
                std::make_unique<ffmpeg::VideoStreamDecoder>(opened, ffmpeg::PixelFormat::RGB);
    });
}

void ClipFrames::openFrames(const Warn& warn) {
    ffmpeg::FrameReaderOptions options;
    options.index = storedFrameIndex(input, opened);
    const bool bareIndex = input.index && !options.index;
    frames.emplace(opened, ffmpeg::PixelFormat::RGB, std::move(options));
    if (bareIndex)
        checkSeekingIndex(warn);
}

// A seeking index says when frames are shown but not how they are reached, so that it serves no
// frame reader. Whoever gives one wants to hear that its numbers are others.
void ClipFrames::checkSeekingIndex(const Warn& warn) const {
    ffmpeg::InputStream packets(opened, opened->findBestVideoStreamIndex());
    loadIndex(packets, input.index);
    const std::vector<ffmpeg::Rational> times = packets.getFrameMsMap();
    bool agrees = static_cast<int64_t>(times.size()) == frames->frameCount();
    for (size_t number = 0; agrees && number < times.size(); ++number)
        agrees = times[number] == frames->frameTime(static_cast<int64_t>(number));
    if (!agrees)
        warn(*input.index + ": not used: its frames are not those of " + input.url);
}

ClipFrames::Picture ClipFrames::read(int64_t number) {
    if (frames) {
        if (number >= frames->frameCount())
            return {};
        return reading(input.url, [&]() -> Picture {
            const auto picture = frames->readFrame(number);
            return {picture.frame, picture.time};
        });
    }
    Picture picture;
    do
        picture = readNext();
    while (picture.frame && nextNumber <= number);
    return picture;
}

ClipFrames::Picture ClipFrames::readNext() {
    try {
        const auto picture = decoder->readNextFrame();
        if (picture.frame)
            ++nextNumber;
        else
            atEnd = true;
        return {picture.frame, picture.timestamp};
    } catch (const std::exception& error) {
        throw Failure(ExitCode::Input, input.url,
                      "frame " + std::to_string(nextNumber) +
                          " cannot be read: " + reasonOf(error, input.url));
    }
}

std::optional<int64_t> ClipFrames::frameCount() const {
    if (frames)
        return frames->frameCount();
    if (atEnd)
        return nextNumber;
    return std::nullopt;
}

ffmpeg::FrameReader& ClipFrames::byNumber() {
    requireReadAgain(input.url);
    return *frames;
}

} // namespace tio::tool
