#include "media/ClipFrames.h"

#include "media/ImageWriter.h"

#include <TARN/videoio/InputStream.h>

#include <utility>

namespace tio::tool {

ClipFrames::ClipFrames(InputOptions input_, const PictureOptions& pictures, const Warn& warn)
    : input(std::move(input_)) {
    if (canBeReadAgain(input.url) || input.index || !pictures.areUsual()) {
        requireReadAgain(input.url);
        openFrames(pictures, warn);
        return;
    }
    opened = openOnce(input.url);
    decoding(input.url, ffmpeg::StreamType::Video, {}, [&] {
        decoder = std::make_unique<ffmpeg::VideoStreamDecoder>(opened, ffmpeg::PixelFormat::RGB);
    });
}

void ClipFrames::openFrames(const PictureOptions& pictures, const Warn& warn) {
    opened = openInput(input.url);
    const auto index = storedFrameIndex(input, opened);
    decoding(input.url, ffmpeg::StreamType::Video, pictures.stream, [&] {
        const int stream = pictures.stream ? *pictures.stream : opened->findBestVideoStreamIndex();
        const bool there = stream < opened->getStreamCount(); // the reader says what is wrong else
        auto options =
            pictures.forReader(there ? ffmpeg::metadataOf(*opened, stream) : ffmpeg::Metadata());
        options.index = index;
        frames.emplace(sourceOf(input.url), std::move(options));
    });
    if (input.index && !index)
        checkSeekingIndex(warn);
    const int64_t count = frames->frameCount();
    if (count > 0)
        warnOfMissingEnd(opened, frames->stream(),
                         frames->frameTime(count - 1) + frames->frameDuration(count - 1) -
                             frames->frameTime(0));
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
            auto picture = frames->readFrame(number);
            return {std::move(picture.image), picture.time, picture.duration};
        });
    }
    auto decoded = decodeNext();
    while (decoded.frame && nextNumber <= number)
        decoded = decodeNext();
    if (!decoded.frame)
        return {};
    return {imageOf(decoded.frame->toRgb()), decoded.timestamp, {}};
}

ClipFrames::Picture ClipFrames::readRequired(int64_t number) {
    auto picture = read(number);
    if (picture.image.empty())
        failNoSuchFrame(number);
    return picture;
}

void ClipFrames::failNoSuchFrame(int64_t number) const {
    const int64_t count = frameCount().value_or(0);
    std::string reason = "there is no frame " + std::to_string(number) + ": ";
    if (count == 0)
        reason += "no picture can be read";
    else
        reason += "frames run from 0 to " + std::to_string(count - 1);
    throw Failure(ExitCode::Input, input.url, reason);
}

ffmpeg::VideoPacketDecoder::Frame ClipFrames::decodeNext() {
    try {
        auto decoded = decoder->readNextFrame();
        atEnd = !decoded.frame;
        nextNumber += atEnd ? 0 : 1;
        return decoded;
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
