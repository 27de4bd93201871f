// A SampleReader on damaged clips, and by indices that were tampered with.
//   byte 0  0: the rest is the file of an index as it is
//           1: the rest changes numbers in a true index: one byte for the column, two for the row,
//              eight for the new value
//           2: the rest changes bytes of a clip: three bytes for the place and one to be added,
//              up to a place that begins with two zeros; what is left says what is read
//           3: the rest is a clip
//   byte 1  which clip, but for 0 and 3
// Of a damaged clip two readers by one index with checksums read in different orders; what both
// give is the same.

#include "InputBytes.h"
#include "exact/sound/index/SoundIndexFile.h"
#include "support/ByteEdits.h"
#include "support/SoundMaker.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace tio::ffmpeg;
using detail::SoundIndexData;
using tio::fuzz::InputBytes;
using tio::test::SoundPlan;
using Bytes = std::vector<uint8_t>;

// No clip here has more; what a damaged one promises may be without end.
constexpr int64_t mostSamples = 400000;

/// A clip and its true index.
struct Clip {
    explicit Clip(const SoundPlan& plan) {
        const tio::test::TemporaryFolder folder;
        const std::string path = folder.file("clip");
        tio::test::makeSound(path, plan);
        bytes = tio::test::readBytes(path);
        const Bytes file = SampleIndex::build(Source::memory(bytes)).toBytes();
        index = *detail::soundIndexOfBytes(file.data(), file.size());
    }

    Bytes bytes;
    SoundIndexData index;
};

/// One for each way of counting samples and of beginning in mid-stream: by packets without run-in
/// and with a reservoir, and by checksums.
const std::vector<Clip>& clips() {
    static const std::vector<Clip> made = [] {
        const std::string tone = "0.3*sin(n*0.05)+0.1*(random(0)-0.5)";
        const std::vector<SoundPlan> plans = {
            {"flac", "flac", "s16", 8000, "mono", 8.2, tone, {{"frame_size", "64"}}, {}},
            {"mp3", "libmp3lame", "fltp", 16000, "mono", 37, tone, {{"b", "8k"}}, {}},
            {"mp4", "aac", "fltp", 8000, "mono", 2, tone, {{"b", "16k"}}, {}},
            {"mpegts", "ac3", "fltp", 48000, "mono", 1, tone, {{"b", "48k"}}, {}},
            {"ogg", "libopus", "flt", 48000, "mono", 1, tone, {{"b", "16k"}}, {}},
            {"wav", "adpcm_ms", "s16", 8000, "mono", 2, tone, {}, {}},
            {"matroska", "pcm_s16le", "s16", 8000, "stereo", 1, tone, {}, {}},
        };
        std::vector<Clip> all;
        for (const SoundPlan& plan : plans)
            if (tio::test::canMake(plan))
                all.emplace_back(plan);
        return all;
    }();
    return made;
}

template <typename Action>
bool attempt(const Action& action) {
    try {
        action();
        return true;
    } catch (const tio::Exception&) { // what a file that lies should give
        return false;
    }
}

/// @name By an index that lies
/// @{

template <typename T>
void editColumn(std::vector<T>& column, size_t row, int64_t value) {
    if (!column.empty())
        column[row % column.size()] = static_cast<T>(value);
}

void editCut(SoundIndexData& index, size_t row, int64_t value) {
    const auto raw = static_cast<uint32_t>(value);
    const auto from = static_cast<uint32_t>(value >> 32) % (raw / 2 + 1);
    const auto packet = static_cast<uint32_t>(row % std::max<uint32_t>(index.packetCount(), 1));
    const auto kept =
        static_cast<uint32_t>(index.ends.empty() ? 0 : index.ends[packet] - index.startOf(packet));
    index.cuts[packet] = {raw, {{from, from + kept}}};
}

/// All packets from one on end earlier or later.
void shiftEnds(SoundIndexData& index, size_t row, int64_t value) {
    for (size_t packet = row; packet < index.ends.size(); ++packet)
        index.ends[packet] += value;
}

void resizeColumns(SoundIndexData& index, size_t rows) {
    rows %= 2048;
    for (auto* column :
         {&index.packets.pts, &index.packets.keyDts, &index.packets.positions, &index.ends})
        column->resize(rows, column->empty() ? 0 : column->back());
    index.packets.hashes.resize(rows);
    index.packets.flags.resize(rows);
    if (!index.checksums.empty())
        index.checksums.resize(rows);
    if (!index.reservoirBytes.empty())
        index.reservoirBytes.resize(rows);
}

using Edit = std::function<void(SoundIndexData&, size_t row, int64_t value)>;

const std::vector<Edit> edits = {
    [](SoundIndexData& index, size_t row, int64_t value) {
        editColumn(index.packets.pts, row, value);
    },
    [](SoundIndexData& index, size_t row, int64_t value) {
        editColumn(index.packets.keyDts, row, value);
    },
    [](SoundIndexData& index, size_t row, int64_t value) {
        editColumn(index.packets.positions, row, value);
    },
    [](SoundIndexData& index, size_t row, int64_t value) {
        editColumn(index.packets.hashes, row, value);
    },
    [](SoundIndexData& index, size_t row, int64_t value) { editColumn(index.ends, row, value); },
    [](SoundIndexData& index, size_t row, int64_t value) {
        editColumn(index.checksums, row, value);
    },
    [](SoundIndexData& index, size_t row, int64_t value) {
        editColumn(index.reservoirBytes, row, value);
    },
    editCut,
    [](SoundIndexData& index, size_t row, int64_t) {
        index.cuts.erase(static_cast<uint32_t>(row));
    },
    shiftEnds,
    [](SoundIndexData& index, size_t row, int64_t) { resizeColumns(index, row); },
    [](SoundIndexData& index, size_t row, int64_t value) {
        index.times.push_back({static_cast<int64_t>(row), Rational(value, 1)});
    },
    [](SoundIndexData& index, size_t, int64_t value) {
        if (!index.times.empty())
            index.times.back().start = Rational(value, index.format.rate);
    },
    [](SoundIndexData& index, size_t row, int64_t value) {
        index.change = detail::FormatChange{static_cast<int64_t>(row), index.format};
        index.change->format.rate = static_cast<int>(value);
    },
    [](SoundIndexData& index, size_t, int64_t value) {
        index.format.rate = static_cast<int>(value);
    },
    [](SoundIndexData& index, size_t, int64_t value) {
        index.format.channels = static_cast<int>(value);
    },
    [](SoundIndexData& index, size_t, int64_t value) {
        index.runIn = static_cast<detail::RunIn>(value & 3);
        index.decoded = (value & 4) != 0;
        index.isSteady = (value & 8) != 0;
    },
    [](SoundIndexData& index, size_t, int64_t) {
        index.checksums.clear();
        index.runIn = detail::RunIn::None;
    },
};

void readHere(SampleReader& reader) {
    const int64_t total = reader.sampleCount();
    if (reader.channelCount() < 1 || reader.channelCount() > 8)
        return;
    for (const int64_t first : {total / 2, int64_t{0}, total - 100, total / 2 + 200, total / 3})
        attempt([&] { (void)reader.readSamples(first, std::min<int64_t>(total - first, 100)); });
    attempt([&] { (void)reader.duration(); });
    attempt([&] { (void)reader.timeOfSample(total - 1); });
    attempt([&] { (void)reader.sampleAt(reader.startTime()); });
    attempt([&] { (void)reader.sampleAt({1, 2}); });
    attempt([&] { (void)reader.readSamplesBetween({1, 4}, {3, 10}).rows(); });
    attempt([&] { (void)reader.index().timeBreaks(); });
}

void readBy(const Bytes& file, const Clip& clip) {
    attempt([&] {
        SampleReaderOptions options;
        options.index = SampleIndex::fromBytes(file);
        SampleReader reader(Source::borrowed(clip.bytes.data(), clip.bytes.size()), options);
        readHere(reader);
    });
}

void readByEditedIndex(InputBytes& input) {
    const Clip& clip = clips()[input.byte() % clips().size()];
    SoundIndexData index = clip.index;
    while (!input.atEnd()) {
        const Edit& edit = edits[input.byte() % edits.size()];
        const auto row = input.number<uint16_t>();
        edit(index, row, input.number<int64_t>());
    }
    readBy(detail::bytesOfSoundIndex(index), clip);
}

/// @}
/// @name Of a clip that is damaged
/// @{

/// Reads everything forward, as far as it goes.
std::vector<float> readForward(SampleReader& reader) {
    constexpr int64_t block = 5000;
    const int64_t total = std::min(reader.sampleCount(), mostSamples);
    std::vector<float> samples;
    for (int64_t first = 0; first < total; first += block) {
        const int64_t count = std::min(block, total - first);
        const bool read = attempt([&] {
            const auto some = reader.readSamples(first, count);
            samples.insert(samples.end(), some.data(), some.data() + some.count);
        });
        if (!read)
            break;
    }
    return samples;
}

void requireSame(const SampleReader::Samples& some, int64_t first, const std::vector<float>& all) {
    const auto at = static_cast<size_t>(first) * static_cast<size_t>(some.cols());
    const auto count = static_cast<size_t>(some.count);
    if (at + count <= all.size() &&
        std::memcmp(some.data(), all.data() + at, count * sizeof(float)) != 0)
        std::abort();
}

void readDamaged(const Bytes& bytes, InputBytes& input) {
    const Source source = Source::borrowed(bytes.data(), bytes.size());
    SampleReaderOptions options;
    options.checksums = true;
    SampleReader forward(source, options);
    const std::vector<float> all = readForward(forward);
    options.index = forward.index();
    SampleReader reader(source, options);
    const int64_t total = std::min(reader.sampleCount(), mostSamples);
    for (int ranges = 0; ranges < 8 && total > 0; ++ranges) {
        const int64_t first = input.number<uint32_t>() % total;
        const int64_t count = std::min<int64_t>(total - first, input.number<uint16_t>() % 8192);
        attempt([&] { requireSame(reader.readSamples(first, count), first, all); });
    }
    readHere(reader);
}

void readEditedClip(InputBytes& input) {
    const Clip& clip = clips()[input.byte() % clips().size()];
    Bytes bytes = clip.bytes;
    for (uint32_t place = input.number<uint16_t>(); place != 0; place = input.number<uint16_t>()) {
        place = place << 8 | input.byte();
        bytes[place % bytes.size()] =
            static_cast<uint8_t>(bytes[place % bytes.size()] + input.byte());
    }
    attempt([&] { readDamaged(bytes, input); });
    attempt([&] { // as most are read, and without asking for proof
        SampleReader reader(Source::borrowed(bytes.data(), bytes.size()));
        readHere(reader);
    });
}

/// @}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    InputBytes input(bytes, count);
    switch (input.byte() % 4) {
    case 0:
        if (count > 1)
            readBy(Bytes(bytes + 1, bytes + count), clips().front());
        break;
    case 1:
        readByEditedIndex(input);
        break;
    case 2:
        readEditedClip(input);
        break;
    default:
        if (count > 1)
            attempt([&] {
                InputBytes none(bytes, 0);
                readDamaged(Bytes(bytes + 1, bytes + count), none);
            });
    }
    return 0;
}
