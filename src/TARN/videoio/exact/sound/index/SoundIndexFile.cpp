#include "exact/sound/index/SoundIndexFile.h"

#include "exact/index/ColumnFile.h"
#include "exact/index/indexStorage.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

// "TARNsnd" and a line end, which a transfer as text would change.
constexpr uint64_t magic = 0x0A646E734E524154;
constexpr uint64_t currentVersion = 1;
constexpr uint64_t headerNumbers = 28;
constexpr uint64_t hashBytesAtEnd = 8;

constexpr uint64_t flagDecoded = 1;
constexpr uint64_t flagSteady = 2;
constexpr uint64_t flagChanges = 4;

/// The numbers before the columns that are not members of the index themselves.
struct Header {
    uint64_t start = magic;
    uint64_t version = currentVersion;
    uint64_t byteCount = 0; // of the whole file
    uint64_t flags = 0;
    uint64_t packets = 0;
    uint64_t cuts = 0;
    uint64_t parts = 0; // of all cuts
    uint64_t checksums = 0;
    uint64_t reservoirs = 0;
    uint64_t times = 0;
    uint64_t samples = 0;
    uint64_t layoutBytes = 0;
    uint64_t nextLayoutBytes = 0;
    uint64_t runIn = 0;

    /// What the counts make of the file's size; 0 when they cannot be right.
    [[nodiscard]] uint64_t expectedByteCount() const {
        for (const uint64_t count : {packets, cuts, parts, checksums, reservoirs, times, samples,
                                     layoutBytes, nextLayoutBytes})
            if (count > byteCount)
                return 0;
        return 8 * headerNumbers + 40 * packets + 12 * cuts + 8 * parts + 4 * checksums +
               2 * reservoirs + 24 * times + 8 * samples + layoutBytes + nextLayoutBytes +
               hashBytesAtEnd;
    }
};

/// What is no column of the index, as columns.
struct Columns {
    std::vector<uint32_t> cutPackets;
    std::vector<uint32_t> cutRaws;
    std::vector<uint32_t> cutParts; // how many
    std::vector<uint32_t> partStarts;
    std::vector<uint32_t> partEnds;
    std::vector<int64_t> timeSamples;
    std::vector<int64_t> timeNumerators;
    std::vector<int64_t> timeDenominators;
    std::vector<uint8_t> layout;
    std::vector<uint8_t> nextLayout;
};

template <typename File>
void exchangeHeader(File& file, Header& header, SoundIndexData& index, FormatChange& change) {
    SourceIdentity& source = index.packets.source;
    for (uint64_t* number :
         {&header.start, &header.version, &header.byteCount, &header.flags, &header.packets,
          &header.cuts, &header.parts, &header.checksums, &header.reservoirs, &header.times,
          &header.samples, &header.layoutBytes, &header.nextLayoutBytes, &header.runIn,
          &source.size, &source.firstBlock, &source.lastBlock})
        file.number(*number);
    for (int32_t* number : {&index.packets.stream, &index.packets.codec,
                            &index.packets.timeBase.num, &index.packets.timeBase.den})
        file.number(*number);
    file.number(change.sample);
    for (SoundFormat* format : {&index.format, &change.format}) {
        file.number(format->rate);
        file.number(format->channels);
        file.number(format->mask);
    }
}

template <typename File>
void exchangeColumns(File& file, SoundIndexData& index, Columns& columns) {
    file.column(index.packets.pts);
    file.column(index.packets.keyDts);
    file.column(index.packets.positions);
    file.column(index.packets.hashes);
    file.column(index.ends);
    file.column(columns.cutPackets);
    file.column(columns.cutRaws);
    file.column(columns.cutParts);
    file.column(columns.partStarts);
    file.column(columns.partEnds);
    file.column(index.checksums);
    file.column(index.reservoirBytes);
    file.column(columns.timeSamples);
    file.column(columns.timeNumerators);
    file.column(columns.timeDenominators);
    file.column(index.packets.source.samples);
    file.column(columns.layout);
    file.column(columns.nextLayout);
}

Columns columnsOf(const SoundIndexData& index) {
    Columns columns;
    for (const auto& [packet, cut] : index.cuts) {
        columns.cutPackets.push_back(packet);
        columns.cutRaws.push_back(cut.raw);
        columns.cutParts.push_back(static_cast<uint32_t>(cut.parts.size()));
        for (const PacketCut::Part& part : cut.parts) {
            columns.partStarts.push_back(part.from);
            columns.partEnds.push_back(part.end);
        }
    }
    for (const TimeRun& run : index.times) {
        columns.timeSamples.push_back(run.firstSample);
        columns.timeNumerators.push_back(run.start.numerator);
        columns.timeDenominators.push_back(run.start.denominator);
    }
    columns.layout.assign(index.format.layout.begin(), index.format.layout.end());
    if (index.change)
        columns.nextLayout.assign(index.change->format.layout.begin(),
                                  index.change->format.layout.end());
    return columns;
}

Header headerOf(const SoundIndexData& index, const Columns& columns) {
    Header header;
    header.flags = (index.decoded ? flagDecoded : 0) | (index.isSteady ? flagSteady : 0) |
                   (index.change ? flagChanges : 0);
    header.packets = index.packetCount();
    header.cuts = columns.cutPackets.size();
    header.parts = columns.partStarts.size();
    header.checksums = index.checksums.size();
    header.reservoirs = index.reservoirBytes.size();
    header.times = index.times.size();
    header.samples = index.packets.source.samples.size();
    header.layoutBytes = columns.layout.size();
    header.nextLayoutBytes = columns.nextLayout.size();
    header.runIn = static_cast<uint64_t>(index.runIn);
    header.byteCount = UINT64_MAX;
    header.byteCount = header.expectedByteCount();
    return header;
}

void resizeColumns(const Header& header, SoundIndexData& index, Columns& columns) {
    index.packets.pts.resize(header.packets);
    index.packets.keyDts.resize(header.packets);
    index.packets.positions.resize(header.packets);
    index.packets.hashes.resize(header.packets);
    index.ends.resize(header.packets);
    columns.cutPackets.resize(header.cuts);
    columns.cutRaws.resize(header.cuts);
    columns.cutParts.resize(header.cuts);
    columns.partStarts.resize(header.parts);
    columns.partEnds.resize(header.parts);
    index.checksums.resize(header.checksums);
    index.reservoirBytes.resize(header.reservoirs);
    columns.timeSamples.resize(header.times);
    columns.timeNumerators.resize(header.times);
    columns.timeDenominators.resize(header.times);
    index.packets.source.samples.resize(header.samples);
    columns.layout.resize(header.layoutBytes);
    columns.nextLayout.resize(header.nextLayoutBytes);
}

// The hash finds damage; this finds what no index of ours would say, so that look-ups need no
// checks of their own.
bool areConsistent(const Header& header, const SoundIndexData& index, const Columns& columns) {
    const auto fitsPackets = [&](uint64_t count) { return count == 0 || count == header.packets; };
    const bool cutsRise =
        std::adjacent_find(columns.cutPackets.begin(), columns.cutPackets.end(),
                           [](uint32_t a, uint32_t b) { return a >= b; }) ==
            columns.cutPackets.end() &&
        (columns.cutPackets.empty() || columns.cutPackets.back() < header.packets);
    const auto parts =
        std::accumulate(columns.cutParts.begin(), columns.cutParts.end(), uint64_t{0});
    const bool timesRise =
        std::adjacent_find(columns.timeSamples.begin(), columns.timeSamples.end(),
                           [](int64_t a, int64_t b) { return a >= b; }) ==
            columns.timeSamples.end() &&
        std::all_of(columns.timeDenominators.begin(), columns.timeDenominators.end(),
                    [](int64_t denominator) { return denominator > 0; }) &&
        (columns.timeSamples.empty() || columns.timeSamples.front() == 0);
    return cutsRise && parts == header.parts && timesRise && fitsPackets(header.checksums) &&
           fitsPackets(header.reservoirs) &&
           header.runIn <= static_cast<uint64_t>(RunIn::Reservoir) &&
           (header.runIn != static_cast<uint64_t>(RunIn::Reservoir) ||
            header.reservoirs == header.packets) &&
           (header.samples == 0 || header.samples == SourceIdentity::sampleCount) &&
           header.packets < UINT32_MAX && index.packets.stream >= 0 &&
           index.packets.timeBase.num > 0 && index.packets.timeBase.den > 0;
}

/// Whether each packet keeps as many samples as its cut says, and the format is one of samples.
bool isConsistent(const SoundIndexData& index) {
    for (uint32_t packet = 0; packet < index.packetCount(); ++packet) {
        if (index.ends[packet] < index.startOf(packet)) // and so none is below 0
            return false;
        const int64_t kept = index.ends[packet] - index.startOf(packet);
        const auto cut = index.cuts.find(packet);
        if (kept > UINT32_MAX)
            return false;
        if (cut == index.cuts.end())
            continue;
        int64_t told = 0;
        uint32_t last = 0;
        for (const PacketCut::Part& part : cut->second.parts) {
            if (part.from < last || part.from >= part.end || part.end > cut->second.raw)
                return false;
            told += part.end - part.from;
            last = part.end;
        }
        if (told != kept)
            return false;
    }
    const int64_t samples = index.sampleCount();
    const bool changes =
        !index.change || (index.change->sample >= 0 && index.change->sample <= samples);
    return changes &&
           (samples == 0 || (index.format.rate > 0 && index.format.channels > 0 &&
                             !index.times.empty() && index.times.back().firstSample < samples));
}

void takeColumns(const Header& header, const Columns& columns, FormatChange change,
                 SoundIndexData& index) {
    index.decoded = (header.flags & flagDecoded) != 0;
    index.isSteady = (header.flags & flagSteady) != 0;
    index.runIn = static_cast<RunIn>(header.runIn);
    index.format.layout.assign(columns.layout.begin(), columns.layout.end());
    change.format.layout.assign(columns.nextLayout.begin(), columns.nextLayout.end());
    if ((header.flags & flagChanges) != 0)
        index.change = std::move(change);
    size_t part = 0;
    for (size_t i = 0; i < columns.cutPackets.size(); ++i) {
        PacketCut& cut = index.cuts[columns.cutPackets[i]];
        cut.raw = columns.cutRaws[i];
        for (uint32_t count = columns.cutParts[i]; count > 0; --count, ++part)
            cut.parts.push_back({columns.partStarts[part], columns.partEnds[part]});
    }
    for (size_t run = 0; run < columns.timeSamples.size(); ++run)
        index.times.push_back({columns.timeSamples[run], Rational(columns.timeNumerators[run],
                                                                  columns.timeDenominators[run])});
    index.packets.flags.assign(header.packets, IndexData::key); // decoding may start at each
    index.packets.keys.resize(header.packets);
    std::iota(index.packets.keys.begin(), index.packets.keys.end(), 0u);
}

// One description of the content serves writing and reading; writing changes nothing.
bool writeContent(std::FILE* opened, const SoundIndexData& index) {
    ColumnWriter writer(opened);
    Columns columns = columnsOf(index);
    Header header = headerOf(index, columns);
    FormatChange change = index.change.value_or(FormatChange());
    auto& content = const_cast<SoundIndexData&>(index);
    exchangeHeader(writer, header, content, change);
    exchangeColumns(writer, content, columns);
    return writer.finish();
}

std::optional<SoundIndexData> readContent(std::FILE* opened, uint64_t byteCount) {
    ColumnReader reader(opened);
    Header header;
    SoundIndexData index;
    FormatChange change;
    exchangeHeader(reader, header, index, change);
    if (header.start != magic || header.version != currentVersion ||
        header.byteCount != byteCount || header.expectedByteCount() != byteCount)
        return std::nullopt;
    Columns columns;
    resizeColumns(header, index, columns);
    exchangeColumns(reader, index, columns);
    if (!reader.finish() || !areConsistent(header, index, columns))
        return std::nullopt;
    takeColumns(header, columns, std::move(change), index);
    if (!isConsistent(index))
        return std::nullopt;
    return index;
}

} // namespace

void writeSoundIndexFile(const std::string& path, const SoundIndexData& index) {
    storeInFile(path, [&](std::FILE* opened) { return writeContent(opened, index); });
}

std::vector<uint8_t> bytesOfSoundIndex(const SoundIndexData& index) {
    return storeInMemory([&](std::FILE* opened) { return writeContent(opened, index); });
}

std::optional<SoundIndexData> soundIndexOfBytes(const uint8_t* bytes, size_t count) {
    std::optional<SoundIndexData> index;
    if (count > 0)
        loadFromMemory(bytes, count, [&](std::FILE* opened, uint64_t byteCount) {
            index = readContent(opened, byteCount);
        });
    return index;
}

std::optional<SoundIndexData> readSoundIndexFile(const std::string& path) {
    std::optional<SoundIndexData> index;
    loadFromFile(path, [&](std::FILE* opened, uint64_t byteCount) {
        index = readContent(opened, byteCount);
    });
    return index;
}

} // namespace tio::ffmpeg::detail
