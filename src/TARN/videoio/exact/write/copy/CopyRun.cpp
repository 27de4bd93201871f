#include "exact/write/copy/CopyRun.h"

#include "base/checks.h"
#include "exact/IndexAccess.h"
#include "exact/index/SourceBytes.h"
#include "exact/write/ClipAssembly.h"
#include "exact/write/clipPlan.h"
#include "exact/write/copy/copyPlan.h"
#include "exact/write/refusal.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameIndex.h>

#include <algorithm>
#include <utility>

namespace tio::ffmpeg {

CopyingCancelled::CopyingCancelled() : tio::Exception("The copying was cancelled") {}

CopyingCancelled::~CopyingCancelled() = default;

namespace detail {

namespace {

// A file can be begun when something is known of all its streams; past so many bytes without a
// packet of one, it is begun without.
constexpr int64_t mostAhead = 64 << 20;

// Sound and pictures of one time lie so close together in a file, in seconds.
const Fraction mostApart{10};

Fraction secondsOf(int64_t ticks, AVRational base) {
    return makeFraction(Wide{ticks} * base.num, base.den).value_or(Fraction(0));
}

} // namespace

CopyRun::CopyRun(const Source& origin, std::string clip, const ClipContainer& kind,
                 const ClipCopierOptions& chosen)
    : source(origin),
      name(std::move(clip)),
      container(kind),
      options(chosen),
      setting{source.name(), container, options.from, options.to, false, {}, false} {
    open();
}

void CopyRun::open() {
    streams.clear();
    input.emplace(source);
    atEnd = false;
    copied.failure.clear();
    const std::vector<int> numbers = chooseStreams(input->format(), options, container, name);
    input->choose(numbers);
    setting.joins = (input->format().iformat->flags & AVFMT_TS_DISCONT) != 0;
    setting.joined = {};
    setting.tellsDecodingLengths = compat::isMp4Family(input->format());
    bool led = false;
    for (const int number : numbers) {
        AVStream& stream = input->stream(number);
        const bool pictures = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        streams.emplace_back(stream, setting, pictures && !led);
        led = led || pictures;
    }
}

CopiedClip CopyRun::copyTo(const std::string& path, const CopyProgressCallback& progress) {
    callback = &progress;
    probe();
    findBeginning();
    readAhead();
    begin(path);
    writeAll();
    return copied;
}

void CopyRun::tellProgress() {
    constexpr unsigned every = 16;
    if (callback != nullptr && *callback && calls++ % every == 0 &&
        !(*callback)({input->position(), input->size(), copied.packets}))
        throw CopyingCancelled();
}

/// The next packet; null at the end, and where reading broke off if that is to be taken for it.
PacketHandle CopyRun::readOrEnd() {
    try {
        PacketHandle packet = input->read();
        reads = true;
        return packet;
    } catch (const Exception& failure) {
        const int code = failure.code();
        if (!options.keepBeginning || !reads || code == AVERROR_EXIT || code == AVERROR(ENOMEM))
            throw;
        copied.failure = failure.what();
        return nullptr;
    }
}

/// Passes the next packet to its stream; false at the end.
bool CopyRun::readOne() {
    PacketHandle packet = readOrEnd();
    if (!packet) {
        closeAll();
        return false;
    }
    tellProgress();
    waitingBytes += packet->size;
    for (CopiedStream& stream : streams) {
        if (stream.original().index != packet->stream_index)
            continue;
        if (packet->dts != AV_NOPTS_VALUE)
            latest = secondsOf(packet->dts, stream.original().time_base);
        stream.add(std::move(packet));
        return true;
    }
    return true;
}

void CopyRun::closeAll() {
    atEnd = true;
    for (CopiedStream& stream : streams)
        stream.close();
}

CopiedStream* CopyRun::leader() {
    const auto found = std::find_if(streams.begin(), streams.end(),
                                    [](const CopiedStream& one) { return one.hasPictures(); });
    return found != streams.end() ? &*found : nullptr;
}

/// Finds out whether the container tells the times of pictures, and has an index tell them if not.
void CopyRun::probe() {
    const auto unknown = [](const CopiedStream& one) {
        return one.hasPictures() && !one.isProbed();
    };
    while (!atEnd && waitingBytes < mostAhead &&
           std::any_of(streams.begin(), streams.end(), unknown) && readOne())
        continue;
    for (CopiedStream& stream : streams) {
        if (!stream.lacksTimes())
            continue;
        if (source.kind() == Source::Kind::Url && isPipe(source.name()))
            failPlainly("\"" + source.name() + "\": the pictures of stream " +
                        std::to_string(stream.original().index) +
                        " have no times, and a pipe cannot be read once more to find them");
        FrameIndexOptions indexing;
        indexing.stream = stream.original().index;
        indexing.progress = [this](const IndexProgress&) {
            tellProgress();
            return true;
        };
        const FrameIndex index = FrameIndex::build(source, indexing);
        stream.order(*IndexAccess::dataOf(index));
        ordered = true;
    }
}

// Reads up to the key picture with which the range begins. Seeking spares most of what is before,
// where times are certain to rise; landing too late, it is tried further back.
void CopyRun::findBeginning() {
    CopiedStream* const first = leader();
    if (first == nullptr || !options.from) {
        for (CopiedStream& stream : streams)
            stream.start();
        return;
    }
    const bool pipe = source.kind() == Source::Kind::Url && isPipe(source.name());
    Fraction back{1};
    constexpr int64_t further = 10;
    const Fraction furthest{1000};
    bool seeks = !pipe && !ordered && !setting.joins;
    if (seeks)
        seeks = seekBefore(back);
    while (true) {
        CopiedStream& one = *leader();
        for (CopiedStream& stream : streams)
            stream.start();
        while (!one.hasBegun() && !one.keys().after && !atEnd && readOne())
            continue;
        if (one.hasBegun())
            return;
        if (!seeks || one.keys().before)
            refuseBeginning(one.keys());
        back = back * Fraction(further);
        if (back > furthest) { // from the start
            open();
            seeks = false;
        } else {
            seeks = seekBefore(back);
        }
    }
}

/// @returns false where the source cannot be sought in; it stands at its start then
bool CopyRun::seekBefore(const Fraction& seconds) {
    const AVStream& stream = leader()->original();
    const AVRational base = stream.time_base;
    const Fraction place = difference(*options.from, seconds).value_or(*options.from);
    if (!input->seek(stream.index, roundedTicks(place, base.num, base.den))) {
        open();
        return false;
    }
    atEnd = false;
    copied.failure.clear();
    for (CopiedStream& one : streams)
        one.forget();
    return true;
}

void CopyRun::refuseBeginning(const KeysAround& keys) const {
    const Fraction from = *options.from;
    std::string text = "\"" + source.name() + "\" has no key picture at " + toText(from) +
                       " s, where the copy has to begin; ";
    if (!keys.before && !keys.after) {
        refuse(source.name(), "no key picture stands at " + toText(from) + " s, and none near it");
    }
    Fraction nearest = keys.before ? *keys.before : *keys.after;
    if (keys.before && keys.after) {
        if (*keys.after - from < from - *keys.before)
            nearest = *keys.after;
        text += "those around it are at " + toText(*keys.before) + " s and " + toText(*keys.after) +
                " s";
    } else {
        text += std::string("the ") + (keys.before ? "last" : "first") + " one is at " +
                toText(nearest) + " s";
    }
    logFailure(text);
    throw TimeRefusal(text, nearest);
}

bool CopyRun::arePast() const {
    const auto end = options.to ? sum(*options.to, mostApart) : std::nullopt;
    if (end && latest > *end)
        return true;
    return std::all_of(streams.begin(), streams.end(),
                       [](const CopiedStream& one) { return one.isPast(); });
}

void CopyRun::readAhead() {
    const auto waits = [](const CopiedStream& one) { return !one.isReady(); };
    waitingBytes = 0;
    while (!atEnd && waitingBytes < mostAhead && !arePast() &&
           std::any_of(streams.begin(), streams.end(), waits) && readOne())
        continue;
    if (arePast())
        closeAll();
    dropEmptyStreams();
}

void CopyRun::dropEmptyStreams() {
    if (atEnd)
        streams.remove_if([](const CopiedStream& one) { return one.isEmpty(); });
    if (streams.empty())
        refuse(source.name(), options.from || options.to ? "there is nothing in that range"
                                                         : "there is nothing to copy");
    for (const CopiedStream& stream : streams)
        copied.streams.push_back(stream.original().index);
    for (unsigned i = 0; i < input->format().nb_streams; ++i) {
        const auto number = static_cast<int>(i);
        const auto& kept = copied.streams;
        if (std::find(kept.begin(), kept.end(), number) == kept.end())
            copied.leftOut.push_back(number);
    }
}

// Nothing that is shown or heard may come to lie before the beginning, where players cut it off.
Fraction CopyRun::findOrigin() const {
    if (options.origin == ClipOrigin::AsGiven)
        return Fraction(0);
    std::optional<Fraction> first;
    const CopiedStream* pictures = nullptr;
    for (const CopiedStream& stream : streams) {
        if (stream.isEmpty())
            continue;
        first = std::min(first.value_or(stream.begin()), stream.begin());
        if (pictures == nullptr && stream.hasPictures())
            pictures = &stream;
    }
    if (!first)
        return Fraction(0);
    return pictures != nullptr ? pictures->tickBefore(*first) : *first; // whose times stay exact
}

void CopyRun::begin(const std::string& path) {
    const Fraction origin = findOrigin();
    const ClipWriterOptions description = describeCopy(input->format(), options, container, origin);
    const int64_t finest = finestWithChapters(description);
    int64_t beginnings = 1;
    int64_t scale = 1;
    muxer.emplace(container, name);
    for (CopiedStream& stream : streams) {
        stream.shiftBy(origin);
        const Fraction first = stream.begin();
        if (first < 0 && (stream.hasPictures() || !container.mp4))
            refuse(name, "stream " + std::to_string(stream.original().index) + " begins at " +
                             toText(first) +
                             " s, and a clip at 0; with ClipOrigin::First it can "
                             "be copied");
        beginnings = commonMultiple(beginnings, first.denominator, finest).value_or(beginnings);
        if (scale == 1 || stream.hasPictures())
            scale = stream.ticks().den;
        muxer->addCopy(stream.original(), stream.ticks(), stream.runIn(), options.keepTurn);
    }
    constexpr int64_t milliseconds = 1000;
    muxer->begin(path, description,
                 movieScale(container, Fraction(1, beginnings), Fraction(0), scale, finest)
                     .value_or(milliseconds));
}

void CopyRun::writeWaiting(CopiedStream& stream, int number) {
    while (PacketHandle packet = stream.next()) {
        muxer->write(*packet, number);
        ++copied.packets;
        tellProgress();
    }
}

void CopyRun::writeAll() {
    bool more = true;
    while (more) {
        int number = 0;
        for (CopiedStream& stream : streams)
            writeWaiting(stream, number++);
        more = !atEnd;
        if (more && (arePast() || !readOne()))
            closeAll();
    }
    for (const CopiedStream& stream : streams)
        copied.extraPictures += stream.hasPictures() ? stream.extraCount() : 0;
    muxer->end();
}

} // namespace detail

} // namespace tio::ffmpeg
