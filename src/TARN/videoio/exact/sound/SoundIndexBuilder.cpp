#include "exact/sound/SoundIndexBuilder.h"

#include "base/checks.h"
#include "exact/ProgressReport.h"
#include "exact/run/PacketSource.h"
#include "exact/sound/SampleCount.h"
#include "exact/sound/SoundRun.h"
#include "exact/sound/SoundScan.h"

#include <TARN/videoio/InputFormatContext.h>

#include <string>

namespace tio::ffmpeg::detail {

namespace {

/// The stream that is asked for.
int soundStream(const Source& source, int asked) {
    const InputFormatContext input(source);
    if (asked == -1)
        return input.findBestAudioStreamIndex();
    const int streams = input.getStreamCount();
    if (asked < 0 || asked >= streams)
        failPlainly("There is no stream " + std::to_string(asked) + " in \"" + source.name() +
                    "\", which has " + std::to_string(streams));
    if (input.getTypeOfStream(asked) != StreamType::Audio)
        failPlainly("Stream " + std::to_string(asked) + " of \"" + source.name() +
                    "\" is not of sound");
    return asked;
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
    const int stream = soundStream(source, options.stream);
    ProgressReport progress(options.progress);
    SoundIndexData index;
    {
        PacketSource packets(source, stream);
        index = scanSound(packets, stream, progress);
    }
    countSamples(source, index, options);
    return index;
}

} // namespace tio::ffmpeg::detail
