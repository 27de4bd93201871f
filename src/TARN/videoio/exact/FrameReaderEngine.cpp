#include "base/checks.h"
#include "base/ticks.h"
#include "exact/FrameReader.h"
#include "exact/IndexAccess.h"
#include "exact/IndexBuilder.h"
#include "exact/index/SourceBytes.h"
#include "exact/index/indexMatch.h"
#include "exact/videoStream.h"
#include "ffmpeg_compat.h"
#include "media/avRational.h"

#include <algorithm>
#include <string>
#include <unistd.h>
#include <utility>

namespace tio::ffmpeg {

namespace {

using Outcome = detail::FrameFinder::Outcome;

constexpr detail::Places at("FrameReader");

detail::PictureConverter::Target targetOf(const FrameReaderOptions& options,
                                          std::optional<PixelFormat> frames) {
    if (!frames)
        return {options.format, options.colours, options.height, options.width};
    if (options.height != 0 || options.width != 0)
        detail::failPlainly("A reader with a PixelFormat gives pictures in their own size");
    switch (*frames) {
    case PixelFormat::Default:
    case PixelFormat::RGB:
        return {PictureFormat::Rgb8, options.colours, 0, 0};
    case PixelFormat::NV12:
        return {PictureFormat::Nv12, options.colours, 0, 0};
    }
    detail::failAssertion("Invalid pixel format", "false", at(5));
}

FrameReader::Reached reachedBy(detail::FrameFinder::Way way, bool proven) {
    using Way = detail::FrameFinder::Way;
    if (proven)
        return FrameReader::Reached::Proven;
    switch (way) {
    case Way::Straight:
        break;
    case Way::AfterRetry:
        return FrameReader::Reached::ExactAfterRetry;
    case Way::FromStart:
        return FrameReader::Reached::Linear;
    }
    return FrameReader::Reached::Exact;
}

/// Seconds as ticks of a time base, rounded down.
/// @throws tio::Exception for a fraction that is too fine for that
int64_t ticksOf(const Rational& time, AVRational timeBase) {
    const int64_t sign = time.denominator < 0 ? -1 : 1;
    int64_t dividend = 0;
    int64_t divisor = 0;
    if (time.denominator == 0 || __builtin_mul_overflow(time.numerator, sign, &dividend) ||
        __builtin_mul_overflow(time.denominator, sign * timeBase.num, &divisor))
        detail::failPlainly("No frame is shown at " + std::to_string(time.numerator) + "/" +
                            std::to_string(time.denominator) + " s");
    return av_rescale_rnd(dividend, timeBase.den, divisor, AV_ROUND_DOWN);
}

} // namespace

FrameReader::Engine::Engine(std::shared_ptr<InputFormatContext> opened,
                            std::optional<PixelFormat> frames, FrameReaderOptions chosen)
    : input(std::move(opened)),
      options(std::move(chosen)),
      frameFormat(frames),
      delivery(targetOf(options, frames)),
      process(::getpid()) {
    const int stream = detail::videoStreamOf(*input, options.stream);
    delivery.turnAs(*input->getStream(stream));
    useIndex(openAndIndex(stream));
    if (options.checksums && index->checksums.empty())
        count(index->singleThread);
}

// The threads of a decoder are not in a forked process: it can neither be used there nor ended.
FrameReader::Engine::~Engine() {
    if (process != ::getpid())
        static_cast<void>(finder.release());
}

// The finder of the other process is dropped when there is a new one: until then it still counts.
void FrameReader::Engine::noticeOtherProcess() {
    if (process == ::getpid())
        return;
    auto opened = std::make_shared<detail::PacketSource>(input, index->stream);
    const Counters before = counters();
    source.swap(opened);
    try {
        auto made = makeFinder(*index);
        static_cast<void>(finder.release()); // and with it the other's source
        finder = std::move(made);
    } catch (...) {
        source.swap(opened);
        throw;
    }
    done = before;
    forgetPicture();
    process = ::getpid();
}

int FrameReader::Engine::height() const noexcept {
    if (options.height > 0)
        return options.height;
    const detail::PictureSize stored = storedSize();
    return delivery.turnsOnSide() ? stored.width : stored.height;
}

int FrameReader::Engine::width() const noexcept {
    if (options.width > 0)
        return options.width;
    const detail::PictureSize stored = storedSize();
    return delivery.turnsOnSide() ? stored.height : stored.width;
}

// Decoders keep more of a picture than the container says where its left edge, cut off as stated,
// would not lie at an address that suits the processor.
detail::PictureSize FrameReader::Engine::storedSize() const noexcept {
    if (index->firstSize.height > 0 && index->firstSize.width > 0)
        return index->firstSize;
    const AVCodecParameters& said = *input->getStream(index->stream)->codecpar;
    return {said.height, said.width};
}

std::shared_ptr<const detail::IndexData> FrameReader::Engine::openAndIndex(int stream) {
    if (!options.index) {
        const FrameIndexOptions making{options.checksums, options.threads, options.progress,
                                       stream};
        source = std::make_shared<detail::PacketSource>(input, stream);
        return std::make_shared<const detail::IndexData>(
            detail::buildIndex(*input, source, making));
    }
    auto given = detail::IndexAccess::dataOf(*options.index);
    requireMatch(*given, stream);
    source = std::make_shared<detail::PacketSource>(input, stream);
    return given;
}

void FrameReader::Engine::requireMatch(const detail::IndexData& given, int stream) const {
    detail::SourceBytes bytes(*input);
    detail::requireSameSource(given.source, bytes, input->getUrl());
    if (!given.isOf(*input->getStream(stream)))
        detail::failMismatch(input->getUrl(), false);
}

std::unique_ptr<detail::FrameFinder>
FrameReader::Engine::makeFinder(const detail::IndexData& next) const {
    const bool nv12 = targetOf(options, frameFormat).format == PictureFormat::Nv12;
    return std::make_unique<detail::FrameFinder>(source, next,
                                                 nv12 ? PixelFormat::NV12 : PixelFormat::RGB,
                                                 next.singleThread ? 1 : options.threads);
}

void FrameReader::Engine::forgetPicture() noexcept {
    standing = -1;
    latestFrame = nullptr;
}

void FrameReader::Engine::useIndex(std::shared_ptr<const detail::IndexData> next) {
    auto made = makeFinder(*next);
    if (finder) {
        done.packetsDecoded += finder->work().packets;
        done.picturesDecoded += finder->work().pictures;
    }
    finder = std::move(made); // the one before refers to the index before
    index = std::move(next);
    standing = -1;
    latestFrame = nullptr;
}

void FrameReader::Engine::count(bool singleThread) {
    auto counted = std::make_shared<detail::IndexData>(*index);
    const FrameIndexOptions making{true, options.threads, options.progress, index->stream};
    detail::countByDecoding(source, *counted, making, singleThread);
    useIndex(std::move(counted));
}

void FrameReader::Engine::requireFrame(int64_t frame) const {
    const int64_t frames = index->frameCount();
    if (frame >= 0 && frame < frames)
        return;
    const std::string what = frames > 0 ? "is outside 0 to " + std::to_string(frames - 1) + " of"
                                        : "does not exist: there are no frames in";
    detail::failAssertion("Frame number " + std::to_string(frame) + " " + what + " \"" +
                              input->getUrl() + "\"",
                          "0 <= frame && frame < frameCount()", at(1));
}

Rational FrameReader::Engine::secondsOf(int64_t ticks) const {
    return Rational(ticks, 1) * Rational(index->timeBase);
}

int64_t FrameReader::Engine::frameAt(const Rational& time) const {
    const int64_t ticks = ticksOf(time, index->timeBase);
    const int64_t frame = index->frameAt(ticks);
    const int64_t last = index->frameCount() - 1;
    const bool over =
        frame == last && frame >= 0 &&
        detail::wrappingDifference(ticks, index->timeOf(last)) >= index->durationOf(last);
    if (frame < 0 || over)
        detail::failAssertion("No frame of \"" + input->getUrl() + "\" is shown at " +
                                  std::to_string(time.numerator) + "/" +
                                  std::to_string(time.denominator) + " s",
                              "0 <= frame && !over", at(2));
    return frame;
}

void FrameReader::Engine::failReading(int64_t frame, const char* reason) const {
    detail::failAssertion("Frame " + std::to_string(frame) + " of \"" + input->getUrl() +
                              "\" cannot be read: " + reason,
                          "false", at(3));
}

/// Brings the finder to a frame. What comes out may show that the stream has to be counted again,
/// by decoding it, and once more with one thread when it is damaged.
void FrameReader::Engine::find(int64_t frame, const std::vector<int64_t>& wanted) {
    constexpr int mostCounts = 2;
    forgetPicture();
    for (int counts = 0;; ++counts) {
        requireFrame(frame);
        const Outcome outcome = finder->find(frame, wanted);
        if (outcome == Outcome::Found) {
            standing = frame;
            return;
        }
        if (outcome == Outcome::Changed)
            failReading(frame, "the source is not as it was when it was indexed");
        if (outcome == Outcome::Unreachable || counts == mostCounts)
            failReading(frame, "its picture does not come out of the decoder as it should");
        count(outcome == Outcome::Damaged);
    }
}

/// Brings the finder to a frame, and gives everything of its picture but the pixels.
FrameReader::Picture FrameReader::Engine::goTo(int64_t frame, const std::vector<int64_t>& wanted) {
    requireFrame(frame);
    noticeOtherProcess();
    if (standing != frame) {
        find(frame, wanted);
        ++done.picturesConverted;
    }
    // The caller may have changed the tag of his own context since; this one is as it was opened.
    delivery.turnAs(finder->decoder().stream());
    const AVFrame& decoded = finder->decoder().decoded();
    Picture picture;
    picture.number = frame;
    picture.time = secondsOf(index->timeOf(frame));
    picture.duration = secondsOf(index->durationOf(frame));
    picture.unitTime = Rational(index->timeBase);
    picture.reached = reachedBy(finder->way(), !index->checksums.empty());
    picture.keyFrame =
        index->hasFlag(index->packets[static_cast<size_t>(frame)], detail::IndexData::key);
    picture.type = av_get_picture_type_char(decoded.pict_type);
    picture.interlaced = compat::isInterlaced(decoded);
    picture.topFieldFirst = compat::isTopFieldFirst(decoded);
    return picture;
}

// A frame never changes, so that the latest is given again; an image is made again of what the
// decoder still holds.
FrameReader::Picture FrameReader::Engine::read(int64_t frame, const std::vector<int64_t>& wanted) {
    const bool again = standing == frame && latestFrame && process == ::getpid();
    Picture picture = goTo(frame, wanted);
    if (frameFormat) {
        if (!again)
            latestFrame = delivery.frame(finder->decoder());
        picture.frame = latestFrame;
    } else {
        picture.image = delivery.image(finder->decoder());
    }
    pictureBytes = std::max(pictureBytes, bytesOf(picture));
    return picture;
}

FrameReader::Picture FrameReader::Engine::readInto(int64_t frame, const ImageView& memory,
                                                   const std::vector<int64_t>& wanted) {
    if (frameFormat)
        detail::failPlainly("A reader with a PixelFormat does not read into given memory");
    Picture picture = goTo(frame, wanted);
    delivery.writeTo(memory, finder->decoder());
    return picture;
}

int64_t FrameReader::Engine::bytesOf(const Picture& picture) const {
    return frameFormat ? detail::byteCountOf(*picture.frame, targetOf(options, frameFormat).format)
                       : picture.image.byteCount();
}

FrameIndex FrameReader::Engine::currentIndex() const {
    const detail::EntryNotes& learned = finder->learned();
    if (learned.cleanFrom == index->notes.cleanFrom &&
        learned.mayLeaveOut == index->notes.mayLeaveOut)
        return detail::IndexAccess::indexOf(index);
    auto updated = std::make_shared<detail::IndexData>(*index);
    updated->notes = learned;
    return detail::IndexAccess::indexOf(std::move(updated));
}

FrameReader::Counters FrameReader::Engine::counters() const noexcept {
    const detail::DecodingRun::Work work = finder->work();
    Counters all = done;
    all.sourceOpenings += source->openingCount();
    all.seeks += source->seekCount();
    all.packetsDecoded += work.packets;
    all.picturesDecoded += work.pictures;
    return all;
}

} // namespace tio::ffmpeg
