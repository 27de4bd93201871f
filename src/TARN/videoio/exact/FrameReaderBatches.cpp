#include "base/checks.h"
#include "exact/FrameReader.h"
#include "exact/frameWindow.h"
#include "exact/partitions.h"

#include <algorithm>
#include <numeric>
#include <unordered_map>
#include <utility>

namespace tio::ffmpeg {

void FrameReader::Engine::readIntoPlaces(const std::vector<int64_t>& frames,
                                         const PlaceCallback& memory,
                                         const WrittenCallback& written) {
    std::unordered_map<int64_t, std::vector<size_t>> places;
    for (size_t place = 0; place < frames.size(); ++place) {
        requireFrame(frames[place]);
        places[frames[place]].push_back(place);
    }
    const std::vector<ImageView> views = memoryOf(frames.size(), memory);
    const std::vector<int64_t> order = detail::decodingOrder(frames, 0, frames.size());
    for (const int64_t frame : order)
        for (const size_t place : places[frame]) {
            const Picture picture = readInto(frame, views[place], order);
            if (written && !written(place, picture))
                return;
        }
}

/// The memory of all places, which could hold pictures of this stream.
std::vector<ImageView> FrameReader::Engine::memoryOf(size_t places,
                                                     const PlaceCallback& memory) const {
    if (frameFormat)
        detail::failPlainly("A reader with a PixelFormat does not read into given memory");
    if (!memory)
        detail::failPlainly("Frames cannot be read into memory without a function that gives it");
    std::vector<ImageView> views;
    views.reserve(places);
    for (size_t place = 0; place < places; ++place) {
        views.push_back(memory(place));
        delivery.requirePossible(views.back(), height(), width());
    }
    return views;
}

std::vector<FrameReader::Range> FrameReader::Engine::partitions(int64_t count) const {
    return detail::cutIntoRanges(*index, finder->learned(), count);
}

/// Where the stream turns out damaged and is counted again, frames before may be others now.
FrameDigest FrameReader::Engine::digest(int64_t first, int64_t end) {
    detail::requireFrames(first, end, index->frameCount(), "\"" + input->getUrl() + "\"");
    std::vector<int64_t> frames(static_cast<size_t>(end - first));
    std::iota(frames.begin(), frames.end(), first);
    while (true) {
        const auto counted = index;
        const FrameDigest made = digestOnce(frames);
        if (counted == index)
            return made;
    }
}

FrameDigest FrameReader::Engine::digestOnce(const std::vector<int64_t>& frames) {
    FrameDigest made;
    noticeOtherProcess();
    for (const int64_t frame : frames) {
        if (standing != frame)
            find(frame, frames);
        made.add(index->checksums.empty() ? finder->decoder().checksum()
                                          : index->checksums[static_cast<size_t>(frame)]);
    }
    return made;
}

size_t FrameReader::Engine::capacity() const {
    const auto pixels = int64_t{std::max(height(), 1)} * std::max(width(), 1);
    const int64_t bytes = std::max(pictureBytes, pixels * 3);
    return static_cast<size_t>(std::max<int64_t>(1, options.byteBudget / bytes));
}

void FrameReader::Engine::readInOrder(const std::vector<int64_t>& frames,
                                      const Callback& callback) {
    for (const int64_t frame : frames)
        requireFrame(frame);
    if (!callback)
        detail::failPlainly("Frames cannot be read without a function that takes them");
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
///          and after all frames when the callback wants no more
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
            const bool last = --uses[ready->first] == 0;
            Picture picture = ready->second;
            if (last)
                waiting.erase(ready);
            else
                picture.image = picture.image.clone(); // the caller may write into it
            if (!callback(picture))
                return frames.size();
        }
        const bool grown = static_cast<int64_t>(capacity()) < room;
        if (grown && waiting.size() > capacity())
            return next;
    }
    return next;
}

} // namespace tio::ffmpeg
