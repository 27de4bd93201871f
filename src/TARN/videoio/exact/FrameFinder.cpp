#include "exact/FrameFinder.h"

#include <algorithm>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

// A picture that has not come out this many packets after its own will not come. With 48, pictures
// of real streams were given up although they came one packet later.
constexpr uint32_t patience = 160;

// Further back than this, decoding from the start is tried: each key frame costs as much again as
// all those after it.
constexpr int earlierEntries = 4;

// A key frame so few packets ahead is reached sooner by decoding on than by a seek, which throws
// away what the decoder has under way.
constexpr uint32_t worthSeeking = 4;

} // namespace

FrameFinder::FrameFinder(std::shared_ptr<PacketSource> source, const IndexData& ofStream,
                         PixelFormat format, int threads)
    : index(ofStream), notes(ofStream.notes), run(std::move(source), ofStream, format, threads) {}

FrameFinder::Outcome FrameFinder::find(int64_t frame, const std::vector<int64_t>& wanted) {
    Aim aim{frame, wanted, notes.mayLeaveOut};
    if (isAhead(frame) && decodeTo(aim) == Result::Hit)
        return Outcome::Found;
    uint32_t limit = index.packetCount();
    for (int tries = 0; tries <= earlierEntries && limit > 0; ++tries) {
        const uint32_t entry = index.entryFor(frame, limit, notes);
        const Result result = tries == 0 ? enterTwice(entry, aim) : enterAndDecode(entry, aim);
        taken = tries == 0 ? Way::Straight : Way::AfterRetry;
        if (result == Result::Hit)
            return Outcome::Found;
        if (result == Result::Misnumbered)
            return Outcome::Misnumbered;
        noteEntry(entry, frame, result);
        aim.leaveOut = false;
        limit = entry;
    }
    return findFromStart(aim);
}

// Going on costs nothing but the pictures between; but where a key frame lies between, starting
// there costs fewer.
bool FrameFinder::isAhead(int64_t frame) const {
    if (!standing || frame <= last || leftOut.count(frame) != 0)
        return false;
    return index.entryFor(frame, index.packetCount(), notes) <= run.nextPacket() + worthSeeking;
}

// Leaving pictures out that no other refers to is safe in nearly all streams. Where the picture
// comes out right only without that, this is one of the others.
FrameFinder::Result FrameFinder::enterTwice(uint32_t entry, Aim aim) {
    const Result result = enterAndDecode(entry, aim);
    if (result == Result::Hit || result == Result::Lost || !aim.leaveOut)
        return result;
    aim.leaveOut = false;
    const Result whole = enterAndDecode(entry, aim);
    if (whole == Result::Hit)
        notes.mayLeaveOut = false;
    return whole;
}

FrameFinder::Result FrameFinder::enterAndDecode(uint32_t entry, const Aim& aim) {
    standing = false;
    if (!run.enterAt(entry))
        return Result::Lost;
    const uint32_t frame = index.frameOf[entry];
    begin(frame != IndexData::noFrame ? frame : 0, false);
    return decodeTo(aim);
}

FrameFinder::Outcome FrameFinder::findFromStart(const Aim& aim) {
    run.startOver();
    begin(0, true);
    taken = Way::FromStart;
    switch (decodeTo(aim)) {
    case Result::Hit:
        return Outcome::Found;
    case Result::Lost:
        return Outcome::Changed;
    case Result::Misnumbered:
        return Outcome::Misnumbered;
    case Result::Damaged:
    case Result::Missed:
    case Result::WrongPicture:
        break;
    }
    if (index.singleThread)
        return Outcome::Unreachable;
    return index.decoded ? Outcome::Damaged : Outcome::Misnumbered;
}

void FrameFinder::begin(int64_t firstCleanFrame, bool fromStart) {
    firstClean = firstCleanFrame;
    last = firstCleanFrame - 1;
    begun = fromStart;
    damageSeen = false;
    failuresBefore = run.decoder().failureCount();
    leftOut.clear();
}

FrameFinder::Result FrameFinder::decodeTo(const Aim& aim) {
    const uint32_t limit = index.packets[static_cast<size_t>(aim.frame)] + patience;
    const auto leaveOut = [&](uint32_t packet) { return isLeftOut(packet, aim); };
    standing = false;
    while (run.next(leaveOut, limit)) {
        const uint32_t packet = run.decoder().packetNumber();
        const int64_t frame = index.frameAfter(last, packet);
        if (frame < 0) {
            if (isSurprise(packet))
                return Result::Misnumbered;
            continue;
        }
        if (!passTo(frame))
            return Result::Misnumbered;
        if (frame == aim.frame)
            return judge(frame);
        if (frame > aim.frame)
            return Result::Missed;
    }
    return run.isLost() ? Result::Lost : Result::Missed;
}

bool FrameFinder::isLeftOut(uint32_t packet, const Aim& aim) {
    const uint32_t frame = index.frameOf[packet];
    if (!aim.leaveOut || frame == IndexData::noFrame || frame == aim.frame ||
        !index.hasFlag(packet, IndexData::disposable))
        return false;
    // What comes after the last one wanted may be asked for next.
    const int64_t lastWanted = aim.wanted.empty() ? aim.frame : aim.wanted.back();
    if (frame > lastWanted || std::binary_search(aim.wanted.begin(), aim.wanted.end(), frame))
        return false;
    leftOut.insert(frame);
    return true;
}

// Pictures that lead a key picture come out damaged, or not at all, when decoding starts there. Any
// other that the numbering does not expect shows that it was made of wrong promises.
bool FrameFinder::isSurprise(uint32_t packet) const {
    if (index.decoded)
        return false;
    const int64_t frame = index.frameAfter(-1, packet);
    return frame < 0 || frame >= firstClean;
}

/// Takes a picture as the next one.
/// @returns false when another should have come before it
bool FrameFinder::passTo(int64_t frame) {
    bool missing = false;
    for (int64_t between = last + 1; between < frame && !missing; ++between)
        missing = leftOut.count(between) == 0;
    leftOut.erase(leftOut.begin(), leftOut.upper_bound(frame));
    damageSeen = damageSeen || run.decoder().isPictureDamaged();
    last = frame;
    const bool misnumbered = missing && begun && !index.decoded;
    begun = true;
    return !misnumbered;
}

FrameFinder::Result FrameFinder::judge(int64_t frame) {
    if (!index.checksums.empty()) {
        const uint32_t expected = index.checksums[static_cast<size_t>(frame)];
        if (run.decoder().checksum() != expected)
            return Result::WrongPicture;
    } else if (damageSeen || run.decoder().failureCount() > failuresBefore) {
        return Result::Damaged;
    }
    standing = true;
    return Result::Hit;
}

// A key frame that once led to a wrong picture is not tried again.
void FrameFinder::noteEntry(uint32_t entry, int64_t frame, Result result) {
    if (entry == 0 || result == Result::Lost)
        return;
    const auto from =
        result == Result::Missed ? static_cast<uint32_t>(frame + 1) : IndexData::noFrame;
    uint32_t& clean = notes.cleanFrom[entry];
    clean = std::max(clean, from);
}

} // namespace tio::ffmpeg::detail
