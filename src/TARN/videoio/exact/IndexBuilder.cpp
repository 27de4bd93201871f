#include "exact/IndexBuilder.h"

#include "base/checks.h"
#include "exact/PacketScan.h"
#include "exact/ProgressReport.h"
#include "exact/run/DecodingRun.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

namespace {

using Input = std::shared_ptr<InputFormatContext>;

// Pictures are only counted and hashed here, so any format will do.
constexpr PixelFormat anyFormat = PixelFormat::RGB;

/// The pictures of one decoding from start to end.
struct Decoded {
    std::vector<uint32_t> packets;
    std::vector<uint32_t> checksums;
    bool damaged = false;
};

Decoded decodeAll(const Input& input, const IndexData& index, int threads,
                  ProgressReport& progress) {
    DecodingRun run(input, index, anyFormat, threads);
    Decoded decoded;
    while (run.next()) {
        decoded.packets.push_back(run.decoder().packetNumber());
        decoded.checksums.push_back(run.decoder().checksum());
        decoded.damaged = decoded.damaged || run.decoder().isPictureDamaged();
        progress.tell(IndexProgress::Step::Pictures, run.nextPacket(), index.packetCount());
    }
    if (run.isLost())
        failPlainly("\"" + input->getUrl() + "\" has changed while its index was made");
    decoded.damaged = decoded.damaged || run.decoder().failureCount() > 0;
    return decoded;
}

// A stream that does not begin with a key packet may give no picture for its first ones. Decoding
// them shows; those after the next key packet do not depend on them.
/// @returns false when the whole stream has to be decoded to know
bool settleStart(const Input& input, IndexData& index, int threads) {
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
    DecodingRun run(input, index, anyFormat, threads);
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
bool endAgrees(const Input& input, IndexData& index, int threads) {
    index.finish();
    if (index.packets.empty())
        return true;
    const int64_t last = index.frameCount() - 1;
    const uint32_t entry = index.entryFor(last, index.packetCount(), index.notes);
    const uint32_t first = index.frameOf[entry];
    if (entry == 0 || first == IndexData::noFrame)
        return false; // decoding everything costs no more
    DecodingRun run(input, index, anyFormat, threads);
    if (!run.enterAt(entry))
        return false;
    int64_t expected = first;
    while (run.next()) {
        const int64_t frame = index.frameAfter(-1, run.decoder().packetNumber());
        if (frame >= 0 && frame < first)
            continue; // a picture that leads the key picture, and comes out damaged from here
        if (frame != expected || run.decoder().isPictureDamaged())
            return false;
        ++expected;
    }
    return !run.isLost() && run.decoder().failureCount() == 0 && expected == index.frameCount();
}

SourceIdentity identityOf(const InputFormatContext& input) {
    SourceBytes bytes(input);
    return SourceIdentity::of(bytes);
}

} // namespace

void countByDecoding(const Input& input, IndexData& index, const FrameIndexOptions& options,
                     bool singleThread) {
    ProgressReport progress(options.progress);
    Decoded decoded = decodeAll(input, index, singleThread ? 1 : options.threads, progress);
    // What a decoder makes of damage with several threads differs from time to time.
    if (decoded.damaged && !singleThread) {
        singleThread = true;
        decoded = decodeAll(input, index, 1, progress);
    }
    index.packets = std::move(decoded.packets);
    index.checksums = std::move(decoded.checksums);
    index.singleThread = singleThread;
    index.decoded = true;
    if (singleThread)
        index.notes.mayLeaveOut = false;
    index.notes.cleanFrom.clear();
    fillTimes(index);
    index.finish();
}

IndexData buildIndex(const Input& input, int stream, const FrameIndexOptions& options) {
    ProgressReport progress(options.progress);
    const SourceIdentity identity = identityOf(*input);
    PacketScan scan;
    {
        PacketSource source(input, stream);
        scan = scanPackets(source, stream, progress);
    }
    IndexData& index = scan.index;
    index.source = identity;
    index.finish();
    const bool packetsTell = !scan.damaged && !scan.fieldsApart && orderByTimes(index);
    if (options.checksums || !packetsTell || !settleStart(input, index, options.threads) ||
        !endAgrees(input, index, options.threads))
        countByDecoding(input, index, options, scan.damaged);
    return std::move(scan.index);
}

} // namespace tio::ffmpeg::detail
