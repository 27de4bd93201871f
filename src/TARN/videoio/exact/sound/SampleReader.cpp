#include "base/checks.h"
#include "exact/index/SourceBytes.h"
#include "exact/index/indexMatch.h"
#include "exact/sound/SoundFinder.h"
#include "exact/sound/SoundIndexBuilder.h"

#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/SampleReader.h>

#include <limits>
#include <string>
#include <unistd.h>
#include <utility>

namespace tio::ffmpeg {

/// From the public index to what it holds, and back.
struct detail::SampleIndexAccess {
    [[nodiscard]] static const std::shared_ptr<const SoundIndexData>&
    dataOf(const SampleIndex& index) {
        return index.data;
    }
    [[nodiscard]] static SampleIndex indexOf(std::shared_ptr<const SoundIndexData> data) {
        return SampleIndex(std::move(data));
    }
};

namespace {

using Outcome = detail::SoundFinder::Outcome;

constexpr detail::Places at("SampleReader");

std::string textOf(const Rational& time) {
    return std::to_string(time.numerator) + "/" + std::to_string(time.denominator);
}

std::string textOf(const detail::SoundFormat& format) {
    return std::to_string(format.rate) + " Hz " + format.layout;
}

} // namespace

/// A reader with its index and the finder that works on it.
class SampleReader::Engine {
public:
    Engine(const Source& from, SampleReaderOptions chosen);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    ~Engine() { leaveToOtherProcess(); }

    [[nodiscard]] const detail::SoundIndexData& data() const noexcept { return *index; }
    void requireRange(int64_t first, int64_t count) const;
    void requireFormat(int64_t end) const;
    void requireTime(const Rational& time) const;
    [[nodiscard]] int64_t sampleAt(const Rational& time) const;

    void read(int64_t first, int64_t count, float* to);

    [[nodiscard]] SampleIndex currentIndex() const {
        return detail::SampleIndexAccess::indexOf(index);
    }
    [[nodiscard]] Counters counters() const noexcept;

private:
    [[nodiscard]] std::shared_ptr<const detail::SoundIndexData> givenIndex() const;
    [[nodiscard]] std::shared_ptr<const detail::SoundIndexData> ownIndex() const;
    [[nodiscard]] SampleIndexOptions making() const;
    void count();
    void useIndex(std::shared_ptr<const detail::SoundIndexData> next);
    void leaveToOtherProcess() noexcept;
    [[noreturn]] void failReading(int64_t first, int64_t count, const char* reason) const;

    Source source;
    SampleReaderOptions options;
    std::shared_ptr<const detail::SoundIndexData> index;
    std::unique_ptr<detail::SoundFinder> finder; // refers to the index
    pid_t process = 0;                           // that made the finder
    Counters done;                               // by finders before this one
};

SampleReader::Engine::Engine(const Source& from, SampleReaderOptions chosen)
    : source(from), options(std::move(chosen)) {
    useIndex(options.index ? givenIndex() : ownIndex());
    if (!index->packets.isOf(finder->stream()))
        detail::failMismatch(source.name(), false);
    if (options.checksums && index->checksums.empty())
        count();
}

SampleIndexOptions SampleReader::Engine::making() const {
    return {options.stream, options.checksums, options.threads, options.progress};
}

std::shared_ptr<const detail::SoundIndexData> SampleReader::Engine::ownIndex() const {
    return std::make_shared<const detail::SoundIndexData>(
        detail::buildSoundIndex(source, making()));
}

std::shared_ptr<const detail::SoundIndexData> SampleReader::Engine::givenIndex() const {
    auto given = detail::SampleIndexAccess::dataOf(*options.index);
    if (options.stream != -1 && options.stream != given->packets.stream)
        detail::failMismatch(source.name(), false);
    detail::SourceBytes bytes(source);
    detail::requireSameSource(given->packets.source, bytes, source.name());
    if (!bytes.areKnown() && InputFormatContext(source).getStreamCount() <= given->packets.stream)
        detail::failMismatch(source.name(), false);
    return given;
}

void SampleReader::Engine::count() {
    auto counted = std::make_shared<detail::SoundIndexData>(*index);
    detail::countSamples(source, *counted, making());
    useIndex(std::move(counted));
}

void SampleReader::Engine::useIndex(std::shared_ptr<const detail::SoundIndexData> next) {
    auto made = std::make_unique<detail::SoundFinder>(source, *next, options.threads);
    if (finder)
        done = counters();
    leaveToOtherProcess();
    finder = std::move(made); // the one before refers to the index before
    index = std::move(next);
    process = getpid();
}

// Behind fork() the threads of a decoder are in the parent, and its file stands where the parent
// wants it. To close either could wait for ever; what is left here is memory.
void SampleReader::Engine::leaveToOtherProcess() noexcept {
    if (finder && process != getpid())
        static_cast<void>(finder.release());
}

void SampleReader::Engine::requireRange(int64_t first, int64_t count) const {
    const int64_t samples = index->sampleCount();
    if (first >= 0 && count >= 0 && first <= samples && count <= samples - first)
        return;
    const std::string what = samples > 0
                                 ? "are not all among 0 to " + std::to_string(samples - 1) + " of"
                                 : "do not exist: there are no samples in";
    detail::failAssertion(std::to_string(count) + " samples from number " + std::to_string(first) +
                              " on " + what + " \"" + source.name() + "\"",
                          "0 <= first && 0 <= count && first + count <= sampleCount()", at(1));
}

void SampleReader::Engine::requireFormat(int64_t end) const {
    if (!index->change || end <= index->change->sample)
        return;
    detail::failAssertion("The sound of \"" + source.name() + "\" changes from " +
                              textOf(index->format) + " to " + textOf(index->change->format) +
                              " at sample " + std::to_string(index->change->sample),
                          "!index->change || end <= index->change->sample", at(2));
}

void SampleReader::Engine::requireTime(const Rational& time) const {
    if (time.denominator == 0)
        detail::failPlainly("There is no sample of \"" + source.name() + "\" at " + textOf(time) +
                            " s, which is no time");
}

int64_t SampleReader::Engine::sampleAt(const Rational& time) const {
    requireTime(time);
    const int64_t next = index->firstAfter(time);
    const bool over = next == index->sampleCount() && !index->change && index->endTime() <= time;
    if (next == 0 || over)
        detail::failAssertion("No sample of \"" + source.name() + "\" is heard at " + textOf(time) +
                                  " s",
                              "next > 0 && !over", at(3));
    requireFormat(next);
    return next - 1;
}

void SampleReader::Engine::failReading(int64_t first, int64_t count, const char* reason) const {
    detail::failAssertion(std::to_string(count) + " samples from number " + std::to_string(first) +
                              " on of \"" + source.name() + "\" cannot be read: " + reason,
                          "false", at(4));
}

/// What comes out may show that the samples have to be counted again, by decoding.
void SampleReader::Engine::read(int64_t first, int64_t number, float* to) {
    requireRange(first, number);
    requireFormat(first + number);
    if (number == 0)
        return;
    if (process != getpid())
        useIndex(index);
    Outcome outcome = finder->read(first, number, to);
    if (outcome == Outcome::Miscounted && !index->decoded) {
        count();
        requireRange(first, number);
        requireFormat(first + number);
        outcome = finder->read(first, number, to);
    }
    if (outcome == Outcome::Changed)
        failReading(first, number, "the source is not as it was when it was indexed");
    if (outcome == Outcome::Miscounted)
        failReading(first, number, "they do not come out of the decoder as they did at first");
}

SampleReader::Counters SampleReader::Engine::counters() const noexcept {
    const detail::SoundRun::Work work = finder->work();
    return {done.sourceOpenings + work.openings, done.seeks + work.seeks,
            done.packetsDecoded + work.packets};
}

SampleReader::SampleReader(const Source& source, SampleReaderOptions options)
    : engine(std::make_unique<Engine>(source, std::move(options))) {}

SampleReader::SampleReader(SampleReader&&) noexcept = default;
SampleReader& SampleReader::operator=(SampleReader&&) noexcept = default;
SampleReader::~SampleReader() = default;

int64_t SampleReader::sampleCount() const noexcept {
    return engine->data().sampleCount();
}

int SampleReader::sampleRate() const noexcept {
    return engine->data().format.rate;
}

int SampleReader::channelCount() const noexcept {
    return engine->data().format.channels;
}

const std::string& SampleReader::layout() const noexcept {
    return engine->data().format.layout;
}

int SampleReader::streamIndex() const noexcept {
    return engine->data().packets.stream;
}

Rational SampleReader::startTime() const {
    return engine->data().sampleCount() > 0 ? engine->data().timeOf(0) : Rational();
}

Rational SampleReader::duration() const {
    engine->requireFormat(sampleCount());
    return sampleCount() > 0 ? engine->data().endTime() - startTime() : Rational();
}

Rational SampleReader::timeOfSample(int64_t sample) const {
    engine->requireRange(sample, 1);
    engine->requireFormat(sample + 1);
    return engine->data().timeOf(sample);
}

int64_t SampleReader::sampleAt(const Rational& time) const {
    return engine->sampleAt(time);
}

SampleReader::Samples SampleReader::readSamples(int64_t first, int64_t count) {
    engine->requireRange(first, count);
    if (count > std::numeric_limits<int>::max())
        detail::failPlainly(std::to_string(count) + " samples are too many for one matrix");
    Samples samples(tio::Vec<int, 2>(static_cast<int>(count), channelCount()));
    engine->read(first, count, samples.data());
    return samples;
}

void SampleReader::readSamples(int64_t first, int64_t count, float* to) {
    engine->requireRange(first, count);
    if (to == nullptr && count > 0)
        detail::failPlainly("Samples cannot be read into memory that is null");
    engine->read(first, count, to);
}

SampleReader::Samples SampleReader::readSamplesBetween(const Rational& from, const Rational& to) {
    engine->requireTime(from);
    engine->requireTime(to);
    const int64_t first = engine->data().firstAt(from);
    const int64_t end = engine->data().firstAt(to);
    return readSamples(first, end > first ? end - first : 0);
}

SampleIndex SampleReader::index() const {
    return engine->currentIndex();
}

SampleReader::Counters SampleReader::counters() const noexcept {
    return engine->counters();
}

} // namespace tio::ffmpeg
