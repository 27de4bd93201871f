#include "media/FrameWalker.h"

#include "media/StoredIndex.h"

#include <TARN/videoio/InputStream.h>

#include <utility>

namespace tio::tool {

namespace {

// A seek opens the clip afresh and throws away what the decoder has under way. It pays when it
// saves decoding at least this many frames.
constexpr int64_t worthSeeking = 32;

std::unique_ptr<ffmpeg::VideoStreamDecoder> openDecoder(const std::string& url) {
    return reading(url, [&] {
        return std::make_unique<ffmpeg::VideoStreamDecoder>(openInput(url),
                                                            ffmpeg::PixelFormat::RGB);
    });
}

} // namespace

FrameWalker::FrameWalker(InputOptions input_, Warn warn_)
    : input(std::move(input_)), warn(std::move(warn_)) {
    restart();
    const auto index = storedFrameIndex(input);
    bareIndex = input.index && !index;
    if (index)
        reading(input.url, [&] { openFrames(index); });
    else if (bareIndex)
        plan = reading(input.url, [&] { return std::make_unique<SeekPlan>(input); });
}

FrameWalker::Picture FrameWalker::read(int64_t number) {
    if (frames || prepareFrames(number))
        return readExactly(number);
    if (bareIndex && maySeek && seekPays(number)) {
        if (Picture picture = jumpTo(number); picture.frame)
            return picture;
    }
    if (const auto count = frameCount(); count && number >= *count)
        return {};
    Picture picture;
    do
        picture = readNext();
    while (picture.frame && nextNumber <= number);
    // No picture of a raw stream has a time.
    if (!picture.frame && nextNumber == 0 && prepareFrames(worthSeeking))
        return readExactly(number);
    return picture;
}

int64_t FrameWalker::countFrames() {
    if (frames || prepareFrames(worthSeeking))
        return frames->frameCount();
    int64_t count = 0;
    if (maySeek && preparePlan()) {
        count = plan->frameCount();
    } else {
        while (readNext().frame) {
        }
        count = nextNumber;
    }
    restart();
    return count;
}

std::optional<int64_t> FrameWalker::frameCount() const {
    if (frames)
        return frames->frameCount();
    if (atEnd)
        return nextNumber;
    if (planTrusted)
        return plan->frameCount();
    return std::nullopt;
}

void FrameWalker::restart() {
    decoder = openDecoder(input.url);
    nextNumber = 0;
    atEnd = false;
}

FrameWalker::Picture FrameWalker::readNext() {
    try {
        Picture picture = decoder->readNextFrame();
        if (picture.frame) {
            ++nextNumber;
            lastTime = picture.timestamp;
        } else {
            atEnd = true;
        }
        return picture;
    } catch (const std::exception& error) {
        throw Failure(ExitCode::Input, input.url,
                      "frame " + std::to_string(nextNumber) +
                          " cannot be read: " + reasonOf(error, input.url));
    }
}

void FrameWalker::openFrames(const std::optional<ffmpeg::FrameIndex>& index) {
    ffmpeg::FrameReaderOptions options;
    options.index = index;
    const auto clip = openInput(input.url);
    unitTime = ffmpeg::InputStream(clip, clip->findBestVideoStreamIndex()).getUnitTime();
    frames =
        std::make_unique<ffmpeg::FrameReader>(clip, ffmpeg::PixelFormat::RGB, std::move(options));
}

/// Has a FrameReader take over where that pays, and numbers frames as plain reading has so far.
bool FrameWalker::prepareFrames(int64_t number) {
    if (bareIndex || !maySeek || number - nextNumber < worthSeeking)
        return false;
    std::string reason = "frames are numbered otherwise than plain reading does";
    try {
        openFrames(std::nullopt);
        if (framesGoOn())
            return true;
    } catch (const std::exception& error) {
        reason = reasonOf(error, input.url);
    }
    frames.reset();
    giveUpSeeking(reason);
    return false;
}

// Plain reading passes over pictures whose time does not rise; a FrameReader counts them.
bool FrameWalker::framesGoOn() const {
    const bool agrees = nextNumber == 0 || (nextNumber <= frames->frameCount() &&
                                            frames->frameTime(nextNumber - 1) == lastTime);
    bool rises = true;
    for (int64_t number = 1; number < frames->frameCount() && rises; ++number)
        rises = frames->frameTime(number - 1) < frames->frameTime(number);
    return agrees && rises;
}

FrameWalker::Picture FrameWalker::readExactly(int64_t number) {
    if (number >= frames->frameCount())
        return {};
    try {
        const auto picture = frames->readFrame(number);
        return {picture.frame, picture.time, unitTime};
    } catch (const std::exception& error) {
        throw Failure(ExitCode::Input, input.url, reasonOf(error, input.url));
    }
}

bool FrameWalker::seekPays(int64_t number) {
    if (number - nextNumber < worthSeeking || !preparePlan() || number >= plan->frameCount())
        return false;
    try {
        const auto landing = plan->cleanLandingFor(number);
        return landing && *landing - nextNumber >= worthSeeking;
    } catch (const std::exception& error) {
        giveUpSeeking(reasonOf(error, input.url));
        return false;
    }
}

// The first picture is enough to see whether the index counts as plain reading does: streams that
// cannot be decoded from their first packet on, for example, differ from there.
bool FrameWalker::preparePlan() {
    if (planTrusted)
        return true;
    try {
        if (!plan)
            plan = std::make_unique<SeekPlan>(input);
    } catch (const std::exception& error) {
        giveUpSeeking(reasonOf(error, input.url));
        return false;
    }
    if (nextNumber == 0 && !readNext().frame)
        return false;
    planTrusted = nextNumber <= plan->frameCount() && plan->timeOf(nextNumber - 1) == lastTime;
    if (!planTrusted)
        giveUpSeeking("the index numbers frames otherwise than reading does");
    return planTrusted;
}

// The decoder is a fresh one, so that nothing it holds from before can come between.
FrameWalker::Picture FrameWalker::jumpTo(int64_t number) {
    std::string reason = "a seek to frame " + std::to_string(number) + " led elsewhere";
    try {
        decoder = openDecoder(input.url);
        plan->giveTo(*decoder);
        decoder->seek(number);
        Picture picture = decoder->readNextFrame();
        if (picture.frame && picture.timestamp == plan->timeOf(number)) {
            nextNumber = number + 1;
            lastTime = picture.timestamp;
            return picture;
        }
    } catch (const std::exception& error) {
        reason = reasonOf(error, input.url);
    }
    giveUpSeeking(reason);
    restart();
    return {};
}

void FrameWalker::giveUpSeeking(const std::string& reason) {
    maySeek = false;
    planTrusted = false;
    plan.reset();
    warn(input.url + ": counting frames from the start: " + reason);
}

} // namespace tio::tool
