#include "base/checks.h"
#include "base/ticks.h"
#include "ffmpeg_compat.h"
#include "input/SeekingIndex.h"
#include "media/ownedPacket.h"

#include <TARN/videoio/InputStream.h>

#include <algorithm>
#include <new>
#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Places at("InputStream");

// The most negative 64-bit integer in microseconds, FFmpeg's unit, turned into seconds: before
// every real timestamp, and far enough from the edge that demuxers can rescale it.
constexpr int64_t rewindTarget = -9223372036854;

} // namespace

/// What a look at the stream's beginning has found so far.
struct InputStream::StartProbe {
    enum class Verdict { GoOn, NotAStart, Enough };

    Verdict judge(const AVPacket& next) {
        if (firstPts == AV_NOPTS_VALUE) {
            if ((next.flags & AV_PKT_FLAG_KEY) == 0) {
                detail::logProgress("found packet before key frame");
                return Verdict::NotAStart;
            }
            firstPts = next.pts;
        } else if (next.pts < firstPts) {
            detail::logProgress("unexpected packet after key frame");
            return Verdict::NotAStart;
        }
        if (budget < 1)
            return Verdict::Enough;
        --budget;
        return Verdict::GoOn;
    }

    int64_t firstPts = AV_NOPTS_VALUE;
    int budget = 100; // packets; leading pictures come right after their key frame
};

InputStream::InputStream(std::shared_ptr<InputFormatContext> input, int streamNumber)
    : Stream(std::move(input), streamNumber),
      packet(detail::ownedPacket()),
      index(std::make_unique<detail::SeekingIndex>()) {}

InputStream::~InputStream() = default;

std::shared_ptr<InputFormatContext> InputStream::context() const {
    return std::static_pointer_cast<InputFormatContext>(formatContext);
}

bool InputStream::readPacket() const {
    if (packet->size != 0)
        return true;
    return context()->getNextPacketForStream(packet.get(), streamIndex);
}

std::shared_ptr<InputPacket> InputStream::getNextPacket() {
    if (!readPacket())
        return nullptr;
    auto next = std::make_shared<InputPacket>(packet.get(), getStream());
    av_packet_unref(packet.get());
    return next;
}

Rational InputStream::getUnitTime() const noexcept {
    return Rational(getStream()->time_base);
}

void InputStream::buildIndexWhenMissing() const {
    if (!index->times.empty())
        return;
    try {
        buildIndex(Scan::Whole);
    } catch (...) { // the first part of an index would be taken for a whole one
        index->times.clear();
        av_packet_unref(packet.get());
        throw;
    }
}

int64_t InputStream::getFrameCount() const {
    buildIndexWhenMissing();
    return static_cast<int64_t>(index->times.size());
}

std::vector<Rational> InputStream::getFrameMsMap() const {
    buildIndexWhenMissing();
    const Rational unitTime = getUnitTime();
    std::vector<Rational> times;
    times.reserve(index->times.size());
    for (const int64_t timestamp : index->times)
        times.push_back(Rational(timestamp, 1) * unitTime);
    return times;
}

bool InputStream::startsWithKeyFrame() {
    return buildIndex(Scan::StartOnly);
}

// A look at the start and a whole scan share the recording of packets, so a look leaves what it
// recorded in the index, unsorted. The header asks callers to use a stream made for the look.
bool InputStream::buildIndex(Scan scan) const {
    const auto input = context();
    if (scan == Scan::Whole)
        input->seekStreamToOrBefore(rewindTarget, streamIndex);
    const bool ptsSeekable = input->isPtsSeekable();
    detail::logProgress(std::string("pts seek supported: ") + (ptsSeekable ? "yes" : "no"));

    StartProbe probe;
    index->begin();
    while (readPacket()) {
        if (scan == Scan::StartOnly) {
            const auto verdict = probe.judge(*packet);
            if (verdict == StartProbe::Verdict::Enough)
                return true; // this packet stays pending, unrecorded
            if (verdict == StartProbe::Verdict::NotAStart) {
                av_packet_unref(packet.get());
                return false;
            }
        }
        recordPacket(ptsSeekable);
        av_packet_unref(packet.get());
    }
    finishIndex();
    return true;
}

void InputStream::recordPacket(bool ptsSeekable) const {
    const bool discarded = (packet->flags & AV_PKT_FLAG_DISCARD) != 0;
    if (discarded)
        detail::logProgress("discarded packet (pts=" + std::to_string(packet->pts) + ")");
    index->record({packet->pts, packet->dts, discarded}, ptsSeekable);
}

void InputStream::finishIndex() const {
    if (index->times.empty())
        detail::failAssertion("Ffmpeg stream has no usable frames.", "!frameNumToTimestamp.empty()",
                              at(181));
    detail::logProgress("max pts dts diff is " + std::to_string(index->maxPtsDtsDifference));
    index->sort();
    seekToFrame(0);
}

void InputStream::checkFrameNumber(int64_t frame) const {
    const auto count = static_cast<int64_t>(index->times.size());
    if (frame < 0 || frame >= count)
        detail::failAssertion("Frame number " + std::to_string(frame) + " is outside 0 to " +
                                  std::to_string(count - 1) + " of \"" + context()->getUrl() + "\"",
                              "0 <= frame && frame < frameNumToTimestamp.size()", at(196));
}

int64_t InputStream::seekToFrame(int64_t frame) const {
    buildIndexWhenMissing();
    checkFrameNumber(frame);
    const int64_t wanted = index->times[static_cast<size_t>(frame)];
    const int64_t landed =
        seekToTimestamp(detail::wrappingDifference(wanted, index->maxPtsDtsDifference));
    // The MP4 demuxer says that it seeks by pts, but without an edit list its index counts in dts,
    // and a seek may land on a key frame after the wanted picture: once more, by the difference.
    if (landed > wanted && packet->dts != AV_NOPTS_VALUE && packet->dts < landed &&
        context()->isPtsSeekable())
        return seekToTimestamp(
            detail::wrappingDifference(wanted, detail::wrappingDifference(landed, packet->dts)));
    return landed;
}

int64_t InputStream::seekToTimestamp(int64_t timestamp) const {
    av_packet_unref(packet.get());
    context()->seekStreamToOrBefore(timestamp, streamIndex);
    return readPacket() ? packet->pts : AV_NOPTS_VALUE;
}

int64_t InputStream::seekToOrBefore(int64_t frame) {
    const int64_t pts = seekToFrame(frame);
    if (pts < index->times.front())
        return 0;
    // Not a binary search: an index that comes from a look at the start is not sorted.
    const auto landed = std::find(index->times.begin(), index->times.end(), pts);
    return landed - index->times.begin();
}

// After a failure the file stays open, and whatever was read or written up to then stays in place.
// One handle to a failure does no harm, and a new stream has nothing of what was read:
// docs/behaviour.md.

void InputStream::storeSeekingIndex(std::string path) const {
    buildIndexWhenMissing();
    index->store(path, detail::SeekingIndex::AfterFailure::LeaveOpen);
}

void InputStream::loadSeekingIndex(std::string path) {
    readIndexFile(path);
    seekToFrame(0);
}

void InputStream::readIndexFile(const std::string& path) {
    index->load(path, detail::SeekingIndex::AfterFailure::LeaveOpen);
}

bool InputStream::hasIndex() const {
    return !index->times.empty();
}

} // namespace tio::ffmpeg
