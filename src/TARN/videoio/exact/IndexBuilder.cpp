#include "exact/IndexBuilder.h"

#include "base/checks.h"
#include "exact/PacketScan.h"
#include "exact/ProgressReport.h"
#include "exact/run/DecodingRun.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

using Packets = std::shared_ptr<PacketSource>;

// Pictures are only counted and hashed here, so any format will do.
constexpr PixelFormat anyFormat = PixelFormat::RGB;

/// The pictures of one decoding from start to end.
struct Decoded {
    std::vector<uint32_t> packets;
    std::vector<uint32_t> checksums;
    PictureSize first;
    bool damaged = false;
};

PictureSize sizeOf(const AVFrame& picture) {
    return {picture.height, picture.width};
}

/// Decodes on to the end; nothing when the packets that come are others than those of the index.
std::optional<Decoded> decodeOn(DecodingRun& run, const IndexData& index,
                                ProgressReport& progress) {
    Decoded decoded;
    const int64_t failuresBefore = run.decoder().failureCount();
    while (run.next()) {
        if (decoded.packets.empty())
            decoded.first = sizeOf(run.decoder().decoded());
        decoded.packets.push_back(run.decoder().packetNumber());
        decoded.checksums.push_back(run.decoder().checksum());
        decoded.damaged = decoded.damaged || run.decoder().isPictureDamaged();
        progress.tell(IndexProgress::Step::Pictures, run.nextPacket(), index.packetCount());
    }
    if (run.isLost())
        return std::nullopt;
    decoded.damaged = decoded.damaged || run.decoder().failureCount() > failuresBefore;
    return decoded;
}

// A damaged source may be another one after a seek.
Decoded decodeAll(const Packets& source, const IndexData& index, int threads, bool opensAgain,
                  ProgressReport& progress) {
    DecodingRun run(source, index, anyFormat, threads);
    if (opensAgain)
        run.startOver();
    else
        run.rewind();
    std::optional<Decoded> decoded = decodeOn(run, index, progress);
    if (!decoded) {
        run.startOver();
        decoded = decodeOn(run, index, progress);
    }
    if (!decoded)
        failPlainly("\"" + source->name() + "\" has changed while its index was made");
    return std::move(*decoded);
}

// A stream that does not begin with a key packet may give no picture for its first ones. Decoding
// them shows; those after the next key packet do not depend on them.
/// @returns false when the whole stream has to be decoded to know
bool settleStart(const Packets& source, IndexData& index, int threads) {
    if (index.packets.empty() || index.hasFlag(0, IndexData::key))
        return true;
    if (index.keys.size() < 2)
        return false;
    index.finish();
    const uint32_t second = index.keys[1];
    const uint32_t reach = index.frameOf[second];
    if (reach == IndexData::noFrame)
        return false;
    std::vector<uint32_t> came;
    DecodingRun run(source, index, anyFormat, threads);
    run.rewind();
    while (run.next() && run.decoder().packetNumber() != second) {
        came.push_back(run.decoder().packetNumber());
        if (run.decoder().isPictureDamaged() || came.size() > reach)
            return false;
    }
    std::sort(came.begin(), came.end());
    for (uint32_t frame = 0; frame < reach; ++frame)
        if (!std::binary_search(came.begin(), came.end(), index.packets[frame]))
            index.flags[index.packets[frame]] |= IndexData::hidden;
    return orderByTimes(index);
}

// The last packets of a cut file may give no picture.
/// @returns false when the last pictures are not those that the packets promise
bool endAgrees(const Packets& source, IndexData& index, int threads) {
    index.finish();
    if (index.packets.empty())
        return true;
    const int64_t last = index.frameCount() - 1;
    const uint32_t entry = index.entryFor(last, index.packetCount(), index.notes);
    const uint32_t first = index.frameOf[entry];
    if (entry == 0 || first == IndexData::noFrame)
        return false; // decoding everything costs no more
    DecodingRun run(source, index, anyFormat, threads);
    if (!run.enterAt(entry))
        return false;
    int64_t expected = first;
    while (run.next()) {
        index.firstSize = sizeOf(run.decoder().decoded());
        const int64_t frame = index.frameAfter(-1, run.decoder().packetNumber());
        if (frame >= 0 && frame < first)
            continue; // a picture that leads the key picture, and comes out damaged from here
        if (frame != expected || run.decoder().isPictureDamaged())
            return false;
        ++expected;
    }
    return !run.isLost() && run.decoder().failureCount() == 0 && expected == index.frameCount();
}

// Where the last pictures are as large as the container says, the first one is believed to be, too.
void settleSize(const Packets& source, IndexData& index, int threads) {
    const AVCodecParameters& said = *source->stream().codecpar;
    if (index.packets.empty() || index.firstSize == PictureSize{said.height, said.width})
        return;
    DecodingRun run(source, index, anyFormat, threads);
    run.rewind();
    index.firstSize = run.next() ? sizeOf(run.decoder().decoded()) : PictureSize{};
}

SourceIdentity identityOf(const InputFormatContext& input) {
    SourceBytes bytes(input);
    return SourceIdentity::of(bytes);
}

} // namespace

void countByDecoding(const Packets& source, IndexData& index, const FrameIndexOptions& options,
                     bool singleThread) {
    ProgressReport progress(options.progress);
    Decoded decoded =
        decodeAll(source, index, singleThread ? 1 : options.threads, singleThread, progress);
    // What a decoder makes of damage with several threads differs from time to time.
    if (decoded.damaged && !singleThread) {
        singleThread = true;
        decoded = decodeAll(source, index, 1, true, progress);
    }
    index.packets = std::move(decoded.packets);
    index.checksums = std::move(decoded.checksums);
    index.firstSize = decoded.first;
    index.singleThread = singleThread;
    index.decoded = true;
    if (singleThread)
        index.notes.mayLeaveOut = false;
    index.notes.cleanFrom.clear();
    fillTimes(index);
    index.finish();
}

IndexData buildIndex(const InputFormatContext& input, const Packets& source,
                     const FrameIndexOptions& options) {
    ProgressReport progress(options.progress);
    const SourceIdentity identity = identityOf(input);
    PacketScan scan = scanPackets(*source, source->streamIndex(), progress);
    IndexData& index = scan.index;
    index.source = identity;
    index.finish();
    const bool packetsTell = !scan.damaged && !scan.fieldsApart && orderByTimes(index);
    if (options.checksums || !packetsTell || !settleStart(source, index, options.threads) ||
        !endAgrees(source, index, options.threads))
        countByDecoding(source, index, options, scan.damaged);
    else
        settleSize(source, index, options.threads);
    if (index.singleThread || !source->comesBackAsOpened())
        source->reopen();
    return std::move(scan.index);
}

} // namespace tio::ffmpeg::detail
