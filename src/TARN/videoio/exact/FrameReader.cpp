#include "exact/FrameReader.h"

#include "base/checks.h"

#include <string>
#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Places at("FrameReader");

} // namespace

FrameReader::FrameReader(const Source& source, FrameReaderOptions options)
    : engine(std::make_unique<Engine>(std::make_shared<InputFormatContext>(source), std::nullopt,
                                      std::move(options))) {}

FrameReader::FrameReader(const std::shared_ptr<InputFormatContext>& input, PixelFormat format,
                         FrameReaderOptions options) {
    if (input == nullptr)
        detail::failPlainly("A FrameReader needs an input");
    engine = std::make_unique<Engine>(input, format, std::move(options));
}

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

Rational FrameReader::timeBase() const noexcept {
    return Rational(engine->data().timeBase);
}

std::vector<int64_t> FrameReader::ticks() const {
    const detail::IndexData& data = engine->data();
    std::vector<int64_t> times;
    for (int64_t frame = 0; frame < data.frameCount(); ++frame)
        times.push_back(data.timeOf(frame));
    return times;
}

std::vector<int64_t> FrameReader::keyFrames() const {
    std::vector<int64_t> frames;
    for (int64_t frame = 0; frame < frameCount(); ++frame)
        if (isKeyFrame(frame))
            frames.push_back(frame);
    return frames;
}

int FrameReader::stream() const noexcept {
    return engine->data().stream;
}

int FrameReader::height() const noexcept {
    return engine->height();
}

int FrameReader::width() const noexcept {
    return engine->width();
}

FrameReader::Picture FrameReader::readFrame(int64_t frame) {
    return engine->read(frame);
}

FrameReader::Picture FrameReader::readFrameInto(int64_t frame, const ImageView& memory) {
    return engine->readInto(frame, memory);
}

void FrameReader::readFramesInto(const std::vector<int64_t>& frames, const PlaceCallback& memory,
                                 const WrittenCallback& written) {
    engine->readIntoPlaces(frames, memory, written);
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
    for (int64_t frame = first; step > 0 ? frame < end : frame > end;) {
        engine->requireFrame(frame); // and so the list is no longer than the clip
        frames.push_back(frame);
        if (__builtin_add_overflow(frame, step, &frame))
            break;
    }
    engine->readInOrder(frames, callback);
}

std::vector<FrameReader::Range> FrameReader::partitions(int64_t count) const {
    if (count < 1)
        detail::failAssertion("A clip cannot be cut into " + std::to_string(count) + " ranges",
                              "count > 0", at(6));
    return engine->partitions(count);
}

FrameDigest FrameReader::digest(int64_t first, int64_t end) {
    return engine->digest(first, end);
}

FrameIndex FrameReader::index() const {
    return engine->currentIndex();
}

FrameReader::Counters FrameReader::counters() const noexcept {
    return engine->counters();
}

} // namespace tio::ffmpeg
