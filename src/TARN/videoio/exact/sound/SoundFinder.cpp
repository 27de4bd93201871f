#include "exact/sound/SoundFinder.h"

#include "base/hash.h"
#include "exact/sound/runIn.h"
#include "exact/sound/sampleConversion.h"

#include <algorithm>
#include <new>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

// A start so few packets ahead is reached sooner by decoding on than by a seek.
constexpr uint32_t worthSeeking = 8;

// Where starts in mid-stream have given wrong samples so often, none is tried any more.
constexpr int mostUselessStarts = 3;

} // namespace

SoundFinder::SoundFinder(const Source& source, const SoundIndexData& ofStream, int threads)
    : index(ofStream), run(source, ofStream.packets, threads) {}

SoundFinder::Outcome SoundFinder::read(int64_t first, int64_t count, float* to) {
    const Aim aim{first, first + count, to};
    if (isAhead(first) && goOn(aim) == Result::Hit)
        return Outcome::Found;
    const uint32_t target = index.packetOf(first);
    uint32_t entry = 0;
    for (int attempt = 0; uselessStarts < mostUselessStarts; ++attempt) {
        entry = entryFor(index, target, attempt);
        if (entry == 0)
            break;
        const Result result = goOnFrom(entry, aim);
        if (result == Result::Hit)
            return Outcome::Found;
        if (result == Result::Wrong)
            ++uselessStarts;
    }
    run.startOver();
    upcoming = 0;
    firstChecked = 0;
    holding = false;
    switch (goOn(aim)) {
    case Result::Hit:
        return Outcome::Found;
    case Result::Wrong:
        return Outcome::Miscounted;
    case Result::Lost:
        break;
    }
    return Outcome::Changed;
}

// Going on costs nothing but the packets between; but where a start lies between, beginning there
// costs fewer.
bool SoundFinder::isAhead(int64_t sample) const {
    if (!standing)
        return false;
    const uint32_t target = index.packetOf(sample);
    if (holding && target == held)
        return true;
    if (target < upcoming)
        return false;
    return uselessStarts >= mostUselessStarts ||
           entryFor(index, target, 0) <= upcoming + worthSeeking;
}

SoundFinder::Result SoundFinder::goOnFrom(uint32_t entry, const Aim& aim) {
    standing = false;
    holding = false;
    if (!run.enterAt(entry))
        return Result::Lost;
    upcoming = index.packetOf(aim.next);
    firstChecked = upcoming;
    return goOn(aim);
}

SoundFinder::Result SoundFinder::goOn(Aim aim) {
    if (holding && index.packetOf(aim.next) == held)
        deliver(aim);
    standing = false;
    while (aim.next < aim.end) {
        const Result result = collect(upcoming);
        if (result != Result::Hit)
            return result;
        deliver(aim);
    }
    standing = true;
    return Result::Hit;
}

/// Collects all that the decoder gives for a packet, and checks it.
SoundFinder::Result SoundFinder::collect(uint32_t packet) {
    holding = false;
    frameCount = 0;
    const uint32_t expected = index.rawOf(packet);
    for (uint32_t samples = 0; samples < expected;) {
        const Result result = collectFrame(packet, samples);
        if (result != Result::Hit)
            return result;
    }
    if (!holdsWhatIsPromised(packet))
        return Result::Wrong;
    holding = true;
    held = packet;
    upcoming = packet + 1;
    return Result::Hit;
}

/// Decodes on to the next frame of a packet and keeps it.
SoundFinder::Result SoundFinder::collectFrame(uint32_t packet, uint32_t& samples) {
    do {
        if (!run.next())
            return run.isLost() ? Result::Lost : Result::Wrong;
        // What run-in gives is thrown away; behind it nothing may come that is not expected.
        if (run.packetNumber() > packet ||
            (run.packetNumber() < packet && run.packetNumber() >= firstChecked))
            return Result::Wrong;
    } while (run.packetNumber() < packet);
    if (frameCount == frames.size()) {
        FrameHandle made(av_frame_alloc()); // has an owner when the list finds no room
        if (!made)
            throw std::bad_alloc();
        frames.push_back(std::move(made));
    }
    AVFrame& kept = *frames[frameCount++];
    av_frame_unref(&kept);
    av_frame_move_ref(&kept, &run.frame());
    samples += static_cast<uint32_t>(kept.nb_samples);
    return Result::Hit;
}

bool SoundFinder::holdsWhatIsPromised(uint32_t packet) const {
    uint32_t samples = 0;
    uint64_t hash = 0;
    const bool beforeChange = !index.change || index.startOf(packet) < index.change->sample;
    for (size_t frame = 0; frame < frameCount; ++frame) {
        samples += static_cast<uint32_t>(frames[frame]->nb_samples);
        if (beforeChange && !index.format.isThatOf(*frames[frame]))
            return false;
        if (!index.checksums.empty())
            hash = hashSamples(*frames[frame], hash);
    }
    return samples == index.rawOf(packet) &&
           (index.checksums.empty() || folded(hash) == index.checksums[packet]);
}

/// Hands over what is wanted of the packet that is held.
void SoundFinder::deliver(Aim& aim) const {
    const auto cut = index.cuts.find(held);
    int64_t sample = index.startOf(held);
    if (cut == index.cuts.end()) {
        deliverPart({0, index.rawOf(held)}, sample, aim);
        return;
    }
    for (const PacketCut::Part& part : cut->second.parts) {
        deliverPart(part, sample, aim);
        sample += part.end - part.from;
    }
}

/// @param sample  number of the part's first one
void SoundFinder::deliverPart(const PacketCut::Part& part, int64_t sample, Aim& aim) const {
    int64_t frameStart = 0; // in the packet, as `part` is
    for (size_t frame = 0; frame < frameCount && aim.next < aim.end; ++frame) {
        const AVFrame& samples = *frames[frame];
        const int64_t toPacket = int64_t{part.from} - sample;
        const int64_t from = std::max<int64_t>(aim.next + toPacket, frameStart);
        const int64_t end =
            std::min({aim.end + toPacket, frameStart + samples.nb_samples, int64_t{part.end}});
        if (from == aim.next + toPacket && from < end) {
            const auto count = static_cast<int>(end - from);
            convertSamples(samples, static_cast<int>(from - frameStart), count, aim.to);
            aim.to += std::ptrdiff_t{count} * index.format.channels;
            aim.next += count;
        }
        frameStart += samples.nb_samples;
    }
}

} // namespace tio::ffmpeg::detail
