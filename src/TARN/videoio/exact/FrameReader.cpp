#include "base/checks.h"
#include "base/ticks.h"
#include "exact/FrameFinder.h"
#include "exact/IndexAccess.h"
#include "exact/IndexBuilder.h"
#include "exact/frameWindow.h"
#include "media/avRational.h"

#include <TARN/videoio/FrameReader.h>

#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>

namespace tio::ffmpeg {

namespace {

using Outcome = detail::FrameFinder::Outcome;

constexpr detail::Location at(int number) {
    return {"FrameReader", number};
}

int64_t bytesOf(const tio::FrameBase& frame, PixelFormat format) {
    if (format == PixelFormat::NV12) {
        const auto& planes = static_cast<const Frame<tio::PixelFormat::NV12>&>(frame).planes;
        return int64_t{planes[0].count} + planes[1].count;
    }
    return static_cast<const Frame<tio::PixelFormat::RGB>&>(frame).plane.count;
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

/// A reader with its index and the finder that works on it.
class FrameReader::Engine {
public:
    Engine(const std::shared_ptr<InputFormatContext>& source, PixelFormat pixelFormat,
           FrameReaderOptions chosen);

    [[nodiscard]] const detail::IndexData& data() const noexcept { return *index; }
    void requireFrame(int64_t frame) const;
    [[nodiscard]] Rational secondsOf(int64_t ticks) const;
    [[nodiscard]] int64_t frameAt(const Rational& time) const;

    [[nodiscard]] Picture read(int64_t frame, const std::vector<int64_t>& wanted = {});
    void readInOrder(const std::vector<int64_t>& frames, const Callback& callback);

    [[nodiscard]] FrameIndex currentIndex() const;
    [[nodiscard]] Counters counters() const noexcept;

private:
    [[nodiscard]] std::shared_ptr<const detail::IndexData> indexFor(int stream) const;
    void useIndex(std::shared_ptr<const detail::IndexData> next);
    void count(bool singleThread);
    void find(int64_t frame, const std::vector<int64_t>& wanted);
    [[noreturn]] void failReading(int64_t frame, const char* reason) const;

    [[nodiscard]] size_t readWindow(const std::vector<int64_t>& frames, size_t begin, size_t end,
                                    const Callback& callback);
    [[nodiscard]] size_t capacity() const;

    std::shared_ptr<InputFormatContext> input; // tells the source; never read from
    PixelFormat format;
    FrameReaderOptions options;
    std::shared_ptr<const detail::IndexData> index;
    std::unique_ptr<detail::FrameFinder> finder; // refers to the index
    Picture latest;                              // given again when it is asked for again
    int64_t pictureBytes = 1;                    // of the largest picture so far
    Counters done;                               // by finders before this one, and conversions
};

FrameReader::Engine::Engine(const std::shared_ptr<InputFormatContext>& source,
                            PixelFormat pixelFormat, FrameReaderOptions chosen)
    : input(source),
      format(pixelFormat == PixelFormat::Default ? PixelFormat::RGB : pixelFormat),
      options(std::move(chosen)) {
    useIndex(indexFor(input->findBestVideoStreamIndex()));
    if (options.checksums && index->checksums.empty())
        count(index->singleThread);
}

std::shared_ptr<const detail::IndexData> FrameReader::Engine::indexFor(int stream) const {
    if (!options.index) {
        const FrameIndexOptions making{options.checksums, options.threads, options.progress};
        return std::make_shared<const detail::IndexData>(detail::buildIndex(input, stream, making));
    }
    auto given = detail::IndexAccess::dataOf(*options.index);
    if (!given->isOf(*input->getStream(stream)))
        detail::failPlainly("The index is not that of \"" + input->getUrl() + "\"");
    return given;
}

void FrameReader::Engine::useIndex(std::shared_ptr<const detail::IndexData> next) {
    auto made = std::make_unique<detail::FrameFinder>(input, *next, format,
                                                      next->singleThread ? 1 : options.threads);
    if (finder)
        done = counters();
    finder = std::move(made); // the one before refers to the index before
    index = std::move(next);
    latest = {};
}

void FrameReader::Engine::count(bool singleThread) {
    auto counted = std::make_shared<detail::IndexData>(*index);
    const FrameIndexOptions making{true, options.threads, options.progress};
    detail::countByDecoding(input, *counted, making, singleThread);
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

/// Brings the finder to a frame. What comes out may show that the stream has to be counted anew,
/// by decoding it, and once more with one thread when it is damaged.
void FrameReader::Engine::find(int64_t frame, const std::vector<int64_t>& wanted) {
    constexpr int mostCounts = 2;
    for (int counts = 0;; ++counts) {
        requireFrame(frame);
        const Outcome outcome = finder->find(frame, wanted);
        if (outcome == Outcome::Found)
            return;
        if (outcome == Outcome::Changed)
            failReading(frame, "the source is not as it was when it was indexed");
        if (outcome == Outcome::Unreachable || counts == mostCounts)
            failReading(frame, "its picture does not come out of the decoder as it should");
        count(outcome == Outcome::Damaged);
    }
}

FrameReader::Picture FrameReader::Engine::read(int64_t frame, const std::vector<int64_t>& wanted) {
    requireFrame(frame);
    if (latest.frame && latest.number == frame)
        return latest;
    find(frame, wanted);
    Picture picture;
    picture.frame = finder->picture();
    picture.number = frame;
    picture.time = secondsOf(index->timeOf(frame));
    picture.duration = secondsOf(index->durationOf(frame));
    picture.reached = reachedBy(finder->way(), !index->checksums.empty());
    ++done.picturesConverted;
    pictureBytes = std::max(pictureBytes, bytesOf(*picture.frame, format));
    latest = picture;
    return picture;
}

size_t FrameReader::Engine::capacity() const {
    const AVCodecParameters& codec = *input->getStream(index->stream)->codecpar;
    const int64_t pixels = int64_t{std::max(codec.width, 1)} * std::max(codec.height, 1);
    const int64_t bytes = std::max(pictureBytes, pixels * (format == PixelFormat::NV12 ? 2 : 3));
    return static_cast<size_t>(std::max<int64_t>(1, options.byteBudget / bytes));
}

void FrameReader::Engine::readInOrder(const std::vector<int64_t>& frames,
                                      const Callback& callback) {
    for (const int64_t frame : frames)
        requireFrame(frame);
    const auto groupOf = [this](int64_t frame) {
        return index->entryFor(frame, index->packetCount(), finder->learned());
    };
    size_t begin = 0;
    while (begin < frames.size()) {
        const size_t end = detail::endOfWindow(frames, begin, capacity(), groupOf);
        begin = readWindow(frames, begin, end, callback);
    }
}

/// Reads the frames of one window and hands them over in the order asked for.
/// @returns where to go on: before the end of the window when pictures are larger than expected,
///          and behind all frames when the callback wants no more
size_t FrameReader::Engine::readWindow(const std::vector<int64_t>& frames, size_t begin, size_t end,
                                       const Callback& callback) {
    const std::vector<int64_t> order = detail::decodingOrder(frames, begin, end);
    std::unordered_map<int64_t, size_t> uses; // that are still to come
    for (size_t i = begin; i < end; ++i)
        ++uses[frames[i]];
    std::unordered_map<int64_t, Picture> waiting;
    const auto room = static_cast<int64_t>(capacity());
    size_t next = begin;
    for (const int64_t frame : order) {
        waiting.emplace(frame, read(frame, order));
        for (; next < end && waiting.count(frames[next]) != 0; ++next) {
            const auto ready = waiting.find(frames[next]);
            const Picture picture = ready->second;
            if (--uses[picture.number] == 0)
                waiting.erase(ready);
            if (!callback(picture))
                return frames.size();
        }
        const bool grown = static_cast<int64_t>(capacity()) < room;
        if (grown && waiting.size() > capacity())
            return next;
    }
    return next;
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
    all.sourceOpenings += work.openings;
    all.seeks += work.seeks;
    all.packetsDecoded += work.packets;
    all.picturesDecoded += work.pictures;
    return all;
}

FrameReader::FrameReader(const std::shared_ptr<InputFormatContext>& input, PixelFormat format,
                         FrameReaderOptions options)
    : engine(std::make_unique<Engine>(input, format, std::move(options))) {}

FrameReader::FrameReader(FrameReader&&) noexcept = default;
FrameReader& FrameReader::operator=(FrameReader&&) noexcept = default;
FrameReader::~FrameReader() = default;

int64_t FrameReader::frameCount() const noexcept {
    return engine->data().frameCount();
}

Rational FrameReader::frameTime(int64_t frame) const {
    engine->requireFrame(frame);
    return engine->secondsOf(engine->data().timeOf(frame));
}

Rational FrameReader::frameDuration(int64_t frame) const {
    engine->requireFrame(frame);
    return engine->secondsOf(engine->data().durationOf(frame));
}

bool FrameReader::isKeyFrame(int64_t frame) const {
    engine->requireFrame(frame);
    const detail::IndexData& data = engine->data();
    return data.hasFlag(data.packets[static_cast<size_t>(frame)], detail::IndexData::key);
}

int64_t FrameReader::frameNumberAt(const Rational& time) const {
    return engine->frameAt(time);
}

FrameReader::Picture FrameReader::readFrame(int64_t frame) {
    return engine->read(frame);
}

FrameReader::Picture FrameReader::readFrameAt(const Rational& time) {
    return engine->read(engine->frameAt(time));
}

void FrameReader::readFrames(const std::vector<int64_t>& frames, const Callback& callback) {
    engine->readInOrder(frames, callback);
}

void FrameReader::readFrames(int64_t first, int64_t end, int64_t step, const Callback& callback) {
    if (step == 0)
        detail::failAssertion("A range of frames cannot have a step of 0", "step != 0", at(4));
    std::vector<int64_t> frames;
    for (int64_t frame = first; step > 0 ? frame < end : frame > end; frame += step) {
        engine->requireFrame(frame); // and so the list is no longer than the clip
        frames.push_back(frame);
    }
    engine->readInOrder(frames, callback);
}

FrameIndex FrameReader::index() const {
    return engine->currentIndex();
}

FrameReader::Counters FrameReader::counters() const noexcept {
    return engine->counters();
}

} // namespace tio::ffmpeg
