#include "exact/index/IndexFile.h"

#include "exact/index/ColumnFile.h"
#include "exact/index/indexStorage.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

// "TARNidx" and a line end, which a transfer as text would change.
constexpr uint64_t magic = 0x0A7864694E524154;
constexpr uint64_t firstVersion = 1; // without samples of the source
constexpr uint64_t currentVersion = 2;
constexpr uint64_t headerNumbers = 23;
constexpr uint64_t hashBytesAtEnd = 8;

constexpr uint64_t flagSingleThread = 1;
constexpr uint64_t flagLeaveOut = 2;
constexpr uint64_t flagDecoded = 4;

// Above the flags is the size of the first picture, each side in as many bits; 0 if not known.
constexpr unsigned heightShift = 8;
constexpr unsigned widthShift = 36;
constexpr uint64_t sideMask = (uint64_t{1} << 28) - 1;

/// The numbers before the columns that are not members of the index themselves.
struct Header {
    uint64_t start = magic;
    uint64_t version = currentVersion;
    uint64_t byteCount = 0; // of the whole file
    uint64_t flags = 0;
    uint64_t packets = 0;
    uint64_t keys = 0;
    uint64_t frames = 0;
    uint64_t ownTimes = 0;
    uint64_t checksums = 0;
    uint64_t notes = 0;
    uint64_t samples = 0;

    /// What the counts make of the file's size; 0 when they cannot be right.
    [[nodiscard]] uint64_t expectedByteCount() const {
        for (const uint64_t count : {packets, keys, frames, ownTimes, checksums, notes, samples})
            if (count > byteCount)
                return 0;
        return 8 * headerNumbers + 25 * packets + 12 * keys + 4 * frames + 8 * ownTimes +
               4 * checksums + 8 * notes + 8 * samples + hashBytesAtEnd;
    }
};

/// The notes as columns.
struct NoteColumns {
    std::vector<uint32_t> packets;
    std::vector<uint32_t> frames;
};

template <typename File>
void exchangeStart(File& file, Header& header) {
    file.number(header.start);
    file.number(header.version);
    file.number(header.byteCount);
}

template <typename File>
void exchangeHeader(File& file, Header& header, IndexData& index) {
    for (uint64_t* number : {&header.flags, &header.packets, &header.keys, &header.frames,
                             &header.ownTimes, &header.checksums, &header.notes, &index.source.size,
                             &index.source.firstBlock, &index.source.lastBlock})
        file.number(*number);
    for (int64_t* number : {&index.source.seconds, &index.source.nanoseconds, &index.frameTicks,
                            &index.lastTicks, &index.maxPtsDtsDifference})
        file.number(*number);
    for (int32_t* number : {&index.stream, &index.codec, &index.timeBase.num, &index.timeBase.den})
        file.number(*number);
    file.number(header.samples);
}

template <typename File>
void exchangeColumns(File& file, IndexData& index, NoteColumns& notes) {
    file.column(index.pts);
    file.column(index.positions);
    file.column(index.hashes);
    file.column(index.flags);
    file.column(index.keys);
    file.column(index.keyDts);
    file.column(index.packets);
    file.column(index.ownTimes);
    file.column(index.checksums);
    file.column(notes.packets);
    file.column(notes.frames);
    file.column(index.source.samples);
}

Header headerOf(const IndexData& index) {
    Header header;
    header.flags = (index.singleThread ? flagSingleThread : 0) |
                   (index.notes.mayLeaveOut ? flagLeaveOut : 0) | (index.decoded ? flagDecoded : 0);
    if (static_cast<uint64_t>(index.firstSize.height) <= sideMask &&
        static_cast<uint64_t>(index.firstSize.width) <= sideMask)
        header.flags |= static_cast<uint64_t>(index.firstSize.height) << heightShift |
                        static_cast<uint64_t>(index.firstSize.width) << widthShift;
    header.packets = index.pts.size();
    header.keys = index.keys.size();
    header.frames = index.packets.size();
    header.ownTimes = index.ownTimes.size();
    header.checksums = index.checksums.size();
    header.notes = index.notes.cleanFrom.size();
    header.samples = index.source.samples.size();
    header.byteCount = UINT64_MAX;
    header.byteCount = header.expectedByteCount();
    return header;
}

void resizeColumns(const Header& header, IndexData& index, NoteColumns& notes) {
    index.pts.resize(header.packets);
    index.positions.resize(header.packets);
    index.hashes.resize(header.packets);
    index.flags.resize(header.packets);
    index.keys.resize(header.keys);
    index.keyDts.resize(header.keys);
    index.packets.resize(header.frames);
    index.ownTimes.resize(header.ownTimes);
    index.checksums.resize(header.checksums);
    notes.packets.resize(header.notes);
    notes.frames.resize(header.notes);
    index.source.samples.resize(header.samples);
}

void takeFlagsAndNotes(const Header& header, const NoteColumns& notes, IndexData& index) {
    index.singleThread = (header.flags & flagSingleThread) != 0;
    index.decoded = (header.flags & flagDecoded) != 0;
    index.notes.mayLeaveOut = (header.flags & flagLeaveOut) != 0;
    index.firstSize = {static_cast<int32_t>(header.flags >> heightShift & sideMask),
                       static_cast<int32_t>(header.flags >> widthShift & sideMask)};
    for (size_t i = 0; i < notes.packets.size(); ++i)
        index.notes.cleanFrom[notes.packets[i]] = notes.frames[i];
}

// The hash finds damage; this finds what no index of ours would say, so that look-ups need no
// checks of their own.
bool isConsistent(const IndexData& index) {
    const auto isPacket = [&](uint32_t packet) { return packet < index.packetCount(); };
    const bool keysRise =
        std::adjacent_find(index.keys.begin(), index.keys.end(),
                           [](uint32_t a, uint32_t b) { return a >= b; }) == index.keys.end();
    const bool startsWithPacket0 = index.packetCount() == 0
                                       ? index.keys.empty()
                                       : !index.keys.empty() && index.keys.front() == 0;
    const size_t samples = index.source.samples.size();
    const auto fitsFrames = [&](size_t count) {
        return count == 0 || count == index.packets.size();
    };
    return keysRise && startsWithPacket0 && fitsFrames(index.ownTimes.size()) &&
           fitsFrames(index.checksums.size()) && index.timeBase.num > 0 && index.timeBase.den > 0 &&
           index.stream >= 0 && (samples == 0 || samples == SourceIdentity::sampleCount) &&
           std::all_of(index.keys.begin(), index.keys.end(), isPacket) &&
           std::all_of(index.packets.begin(), index.packets.end(), isPacket);
}

// One description of the content serves writing and reading; writing changes nothing.
bool writeContent(std::FILE* opened, const IndexData& index) {
    ColumnWriter writer(opened);
    Header header = headerOf(index);
    NoteColumns notes;
    for (const auto& [packet, frame] : index.notes.cleanFrom) {
        notes.packets.push_back(packet);
        notes.frames.push_back(frame);
    }
    auto& content = const_cast<IndexData&>(index);
    exchangeStart(writer, header);
    exchangeHeader(writer, header, content);
    exchangeColumns(writer, content, notes);
    return writer.finish();
}

IndexFileContent readContent(std::FILE* opened, uint64_t byteCount) {
    using Kind = IndexFileContent::Kind;
    ColumnReader reader(opened);
    Header header;
    IndexData index;
    exchangeStart(reader, header);
    if (byteCount >= sizeof magic && header.start != magic)
        return {Kind::Other, std::nullopt};
    if (byteCount >= 2 * sizeof magic && header.version != firstVersion &&
        header.version != currentVersion)
        return {Kind::Other, std::nullopt};
    exchangeHeader(reader, header, index);
    if (header.byteCount != byteCount || header.expectedByteCount() != byteCount)
        return {Kind::Damaged, std::nullopt};
    NoteColumns notes;
    resizeColumns(header, index, notes);
    exchangeColumns(reader, index, notes);
    takeFlagsAndNotes(header, notes, index);
    if (!reader.finish() || !isConsistent(index))
        return {Kind::Damaged, std::nullopt};
    index.finish();
    return {Kind::Whole, std::move(index)};
}

} // namespace

void writeIndexFile(const std::string& path, const IndexData& index) {
    storeInFile(path, [&](std::FILE* opened) { return writeContent(opened, index); });
}

std::vector<uint8_t> bytesOfIndex(const IndexData& index) {
    return storeInMemory([&](std::FILE* opened) { return writeContent(opened, index); });
}

IndexFileContent indexOfBytes(const uint8_t* bytes, size_t count) {
    IndexFileContent content{IndexFileContent::Kind::Damaged, std::nullopt};
    if (count > 0)
        loadFromMemory(bytes, count, [&](std::FILE* opened, uint64_t byteCount) {
            content = readContent(opened, byteCount);
        });
    return content;
}

IndexFileContent readIndexFile(const std::string& path) {
    IndexFileContent content{IndexFileContent::Kind::Damaged, std::nullopt};
    loadFromFile(path, [&](std::FILE* opened, uint64_t byteCount) {
        content = readContent(opened, byteCount);
    });
    return content;
}

} // namespace tio::ffmpeg::detail
