#include "exact/partitions.h"

#include <algorithm>
#include <cstdlib>

namespace tio::ffmpeg::detail {

namespace {

/// The places where ranges may begin, and what lies between them.
class Cuts {
public:
    Cuts(const IndexData& index, const EntryNotes& learned);

    /// How many places there are, without the end of all frames, which is one more.
    [[nodiscard]] size_t count() const noexcept { return entries.size(); }
    [[nodiscard]] int64_t frameAt(size_t place) const noexcept { return frames[place]; }

    /// Packets to be decoded for the frames between two places.
    [[nodiscard]] int64_t cost(size_t from, size_t to) const noexcept {
        return int64_t{lastPackets[to - 1]} - entries[from] + 1;
    }

    /// The last place up to which a range from `from` on costs no more than `most`; the next place
    /// where even that costs more.
    [[nodiscard]] size_t furthest(size_t from, int64_t most) const;

private:
    std::vector<int64_t> frames;       // places, and after them the number of all frames
    std::vector<uint32_t> entries;     // by place: the packet where decoding begins
    std::vector<uint32_t> lastPackets; // by place: the last packet needed before the next one
};

/// The first frame that a key packet leads to by itself, in the order of packets; no frame where it
/// leads to none.
std::vector<int64_t> beginnings(const IndexData& index, const EntryNotes& learned) {
    std::vector<int64_t> frames{0};
    for (const uint32_t key : index.keys) {
        const auto note = learned.cleanFrom.find(key);
        const uint32_t own = index.frameOf[key];
        const uint32_t frame = note == learned.cleanFrom.end() ? own
                               : own == IndexData::noFrame     ? note->second
                                                               : std::max(own, note->second);
        if (frame != IndexData::noFrame && int64_t{frame} < index.frameCount())
            frames.push_back(frame);
    }
    std::sort(frames.begin(), frames.end());
    frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
    return frames;
}

Cuts::Cuts(const IndexData& index, const EntryNotes& learned) : frames(beginnings(index, learned)) {
    frames.push_back(index.frameCount());
    uint32_t last = 0;
    for (size_t place = 0; place + 1 < frames.size(); ++place) {
        entries.push_back(index.entryFor(frames[place], index.packetCount(), learned));
        for (int64_t frame = frames[place]; frame < frames[place + 1]; ++frame)
            last = std::max(last, index.packets[static_cast<size_t>(frame)]);
        lastPackets.push_back(last);
    }
}

size_t Cuts::furthest(size_t from, int64_t most) const {
    const auto begin = lastPackets.begin() + static_cast<std::ptrdiff_t>(from);
    const auto tooFar = std::upper_bound(begin, lastPackets.end(), entries[from] + most - 1);
    return std::max(from + 1, static_cast<size_t>(tooFar - lastPackets.begin()));
}

/// How many ranges of no more than `most` there are at least; of more, where one place alone has
/// them.
int64_t rangesNeeded(const Cuts& cuts, int64_t most) {
    int64_t ranges = 0;
    for (size_t place = 0; place < cuts.count(); place = cuts.furthest(place, most))
        ++ranges;
    return ranges;
}

int64_t dearestPlace(const Cuts& cuts) {
    int64_t most = 1;
    for (size_t place = 0; place < cuts.count(); ++place)
        most = std::max(most, cuts.cost(place, place + 1));
    return most;
}

/// The least that the most expensive of so many ranges has to cost.
int64_t leastMost(const Cuts& cuts, int64_t count) {
    int64_t tooLittle = dearestPlace(cuts) - 1;
    int64_t enough = cuts.cost(0, cuts.count());
    while (enough - tooLittle > 1) {
        const int64_t middle = tooLittle + (enough - tooLittle) / 2;
        (rangesNeeded(cuts, middle) <= count ? enough : tooLittle) = middle;
    }
    return std::max(enough, tooLittle + 1);
}

/// By place: how many ranges are needed from there on.
std::vector<int64_t> rangesFrom(const Cuts& cuts, int64_t most) {
    std::vector<int64_t> needed(cuts.count() + 1);
    for (size_t place = cuts.count(); place-- > 0;)
        needed[place] = 1 + needed[cuts.furthest(place, most)];
    return needed;
}

} // namespace

std::vector<FrameReader::Range> cutIntoRanges(const IndexData& index, const EntryNotes& learned,
                                              int64_t count) {
    std::vector<FrameReader::Range> ranges;
    if (index.frameCount() == 0)
        return ranges;
    const Cuts cuts(index, learned);
    count = std::min(count, static_cast<int64_t>(cuts.count()));
    const int64_t most = leastMost(cuts, count);
    const std::vector<int64_t> needed = rangesFrom(cuts, most);
    size_t from = 0;
    for (int64_t left = count; from < cuts.count(); --left) {
        // Of the places that leave enough ranges for the rest, the one nearest to an equal share.
        const int64_t share = cuts.cost(from, cuts.count()) / left;
        size_t to = cuts.furthest(from, most);
        const auto distance = [&](size_t place) {
            return std::abs(cuts.cost(from, place) - share);
        };
        while (to - 1 > from && needed[to - 1] < left && distance(to - 1) <= distance(to))
            --to;
        ranges.push_back({cuts.frameAt(from), cuts.frameAt(to)});
        from = to;
    }
    return ranges;
}

} // namespace tio::ffmpeg::detail
