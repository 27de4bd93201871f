// An index of ten hours at 60 frames a second, made up: how long it takes to save, to load and to
// look things up, and how much memory it takes.
//   tarn_long_index FILE

#include "exact/index/IndexData.h"
#include "exact/index/IndexFile.h"
#include "speed.h"

#include <iostream>
#include <random>

namespace {

using tio::ffmpeg::detail::IndexData;

/// Groups of 250 in the order of the file, each picture but the key one swapped with its neighbour.
IndexData makeLongIndex(uint32_t count, bool checksums) {
    IndexData index;
    index.timeBase = {1, 90000};
    index.frameTicks = index.lastTicks = 1500;
    std::mt19937_64 random(1);
    for (uint32_t packet = 0; packet < count; ++packet) {
        const bool key = packet % 250 == 0;
        const uint32_t frame =
            key || packet + 1 == count ? packet : (packet % 2 != 0 ? packet + 1 : packet - 1);
        const uint32_t place = frame % 250 == 0 && !key ? packet : frame;
        index.pts.push_back(int64_t{place} * 1500);
        index.positions.push_back(int64_t{packet} * 20000);
        index.hashes.push_back(random());
        index.flags.push_back(key ? IndexData::key : 0);
        index.packets.push_back(place);
        if (checksums)
            index.checksums.push_back(static_cast<uint32_t>(random()));
        if (key) {
            index.keys.push_back(packet);
            index.keyDts.push_back(int64_t{packet} * 1500);
        }
    }
    index.finish();
    return index;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    constexpr uint32_t count = 10 * 3600 * 60;
    IndexData index = makeLongIndex(count, true);
    std::cerr << count << " frames, " << static_cast<double>(index.byteCount()) / count
              << " bytes each with checksums\n";
    tio::bench::measure("index", "save",
                        [&] { tio::ffmpeg::detail::writeIndexFile(argv[1], index); });
    for (int round = 0; round < 3; ++round)
        tio::bench::measure("index", "load", [&] {
            const auto loaded = tio::ffmpeg::detail::readIndexFile(argv[1]);
            if (!loaded.index)
                std::cerr << "not loaded\n";
        });
    int64_t sum = 0;
    std::mt19937_64 random(2);
    tio::bench::measure("index", "million-times", [&] {
        for (int i = 0; i < 1000000; ++i)
            sum += index.frameAt(static_cast<int64_t>(random() % (uint64_t{count} * 1500)));
    });
    tio::bench::measure("index", "million-entries", [&] {
        for (int i = 0; i < 1000000; ++i)
            sum += index.entryFor(static_cast<int64_t>(random() % count), count, {});
    });
    std::cerr << "sum " << sum << "\n"; // keeps the compiler from leaving the look-ups out
}
