#include "exact/sound/SoundIndexBuilder.h"

#include "base/checks.h"
#include "exact/ProgressReport.h"
#include "exact/index/SourceBytes.h"
#include "exact/run/PacketSource.h"
#include "exact/sound/SampleCount.h"
#include "exact/sound/SoundRun.h"
#include "exact/sound/SoundScan.h"
#include "exact/sound/runIn.h"

#include <TARN/videoio/InputFormatContext.h>

#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg::detail {

namespace {

/// The stream that is asked for.
int soundStream(const InputFormatContext& input, int asked) {
    const std::string name = input.getUrl();
    if (asked == -1)
        return input.findBestAudioStreamIndex();
    const int streams = input.getStreamCount();
    if (asked < 0 || asked >= streams)
        failPlainly("There is no stream " + std::to_string(asked) + " in \"" + name +
                    "\", which has " + std::to_string(streams));
    if (input.getTypeOfStream(asked) != StreamType::Audio)
        failPlainly("Stream " + std::to_string(asked) + " of \"" + name + "\" is not of sound");
    return asked;
}

// A shorter stream, of some 20 seconds of AAC, is decoded as a whole: that takes some hundredths of
// a second and gives checksums.
constexpr uint32_t worthTrusting = 1000;

// Of so many packets at each end the samples are compared with what comes out. What can be wrong
// with all packets shows in the first ones, and what a cut file lacks in the last ones.
constexpr uint32_t endPackets = 8;

/// Decodes the first packets, which tells the format as well.
bool startAgrees(SoundRun& run, SoundIndexData& index) {
    SoundIndexData start;
    start.packets.flags.resize(endPackets);
    SampleCount count(start);
    while (run.next() && run.packetNumber() < endPackets)
        count.add(run.packetNumber(), run.frame());
    count.finish();
    index.format = start.format;
    if (start.change || start.format.channels == 0)
        return false;
    for (uint32_t packet = 0; packet < endPackets; ++packet)
        if (start.ends[packet] != index.ends[packet] || start.rawOf(packet) != index.rawOf(packet))
            return false;
    return true;
}

/// Decodes the last packets.
bool endAgrees(SoundRun& run, const SoundIndexData& index) {
    const uint32_t first = index.packetCount() - endPackets;
    if (!run.enterAt(entryFor(index, first, 0)))
        return false;
    std::vector<uint32_t> samples(endPackets);
    while (run.next()) {
        if (run.packetNumber() < first)
            continue;
        if (!index.format.isThatOf(run.frame()))
            return false;
        samples[run.packetNumber() - first] += static_cast<uint32_t>(run.frame().nb_samples);
    }
    for (uint32_t packet = 0; packet < endPackets; ++packet)
        if (samples[packet] != index.rawOf(first + packet))
            return false;
    return !run.isLost();
}

bool endsAgree(const Source& source, SoundIndexData& index, int threads) {
    SoundRun run(source, index.packets, threads);
    return startAgrees(run, index) && endAgrees(run, index);
}

} // namespace

void countSamples(const Source& source, SoundIndexData& index, const SampleIndexOptions& options) {
    ProgressReport progress(options.progress);
    SampleCount count(index);
    SoundRun run(source, index.packets, options.threads);
    while (run.next()) {
        count.add(run.packetNumber(), run.frame());
        progress.tell(IndexProgress::Step::Samples, run.nextPacket(), index.packetCount());
    }
    if (run.isLost())
        failPlainly("\"" + source.name() + "\" has changed while its index was made");
    count.finish();
    findTimes(index);
}

SoundIndexData buildSoundIndex(const Source& source, const SampleIndexOptions& options) {
    int stream = -1;
    SourceIdentity identity;
    {
        const InputFormatContext input(source);
        stream = soundStream(input, options.stream);
        SourceBytes bytes(input);
        identity = SourceIdentity::of(bytes);
    }
    ProgressReport progress(options.progress);
    SoundScan scan;
    {
        PacketSource packets(source, stream);
        scan = scanSound(packets, stream, progress);
    }
    scan.index.packets.source = std::move(identity);
    const bool packetsTell = scan.packetsTell && scan.index.packetCount() >= worthTrusting;
    if (!options.checksums && packetsTell && endsAgree(source, scan.index, options.threads))
        findTimes(scan.index);
    else
        countSamples(source, scan.index, options);
    return std::move(scan.index);
}

} // namespace tio::ffmpeg::detail
