#include "Commands.h"
#include "OutputClip.h"
#include "Progress.h"

#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/OutputStream.h>

#include <algorithm>
#include <deque>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

namespace tio::tool {

namespace {

struct RemuxOptions {
    std::string output;
    bool keepRotation = false;
};

/// One stream on its way from the input to the output.
///
/// Each has the input opened for itself: a context drops the packets of the streams that it is not
/// asked for, and reading a file twice costs less than keeping the packets of one stream until
/// those of another have been found.
class CopiedStream {
public:
    CopiedStream(const std::string& url, int index, const OutputClip& clip)
        : input(openInput(url), index), output(clip.write([&] {
              return std::make_unique<ffmpeg::OutputStream>(clip.context(), input.getUnitTime());
          })) {
        readOn();
    }

    void keepRotation() { output->setRotation(ffmpeg::getStreamRotation(input.getStream())); }

    [[nodiscard]] bool atEnd() const { return waiting.empty(); }

    /// Seconds at which the waiting packet is decoded, which is the order of packets in a file.
    [[nodiscard]] ffmpeg::Rational time() const { return waiting.front()->getDts(); }

    void copyOne() {
        output->writePacket(*waiting.front());
        lastDts = waiting.front()->getDts();
        waiting.pop_front();
        if (waiting.empty())
            readOn();
    }

private:
    // Matroska stores no decoding times, and FFmpeg guesses them only once it knows how pictures
    // are reordered. So the first packets wait for the first with a time and get theirs from it.
    void readOn() {
        while (waiting.empty() || (!waiting.back()->hasDts() && waiting.size() < mostGuessed)) {
            auto next = input.getNextPacket();
            if (!next)
                break;
            if (!next->hasDts() && lastDts)
                next->setDts(*lastDts + input.getUnitTime());
            waiting.push_back(std::move(next));
        }
        for (size_t i = waiting.size(); i-- > 1;) {
            if (waiting[i]->hasDts() && !waiting[i - 1]->hasDts())
                waiting[i - 1]->setDts(waiting[i]->getDts() - lengthOf(*waiting[i - 1]));
        }
    }

    [[nodiscard]] ffmpeg::Rational lengthOf(const ffmpeg::InputPacket& packet) {
        return std::max(packet.getDuration(), input.getUnitTime());
    }

    static constexpr size_t mostGuessed = 64; // four times as far as H.264 can reorder

    ffmpeg::InputStream input;
    std::unique_ptr<ffmpeg::OutputStream> output; // its packets refer to the input
    std::deque<std::shared_ptr<ffmpeg::InputPacket>> waiting;
    std::optional<ffmpeg::Rational> lastDts;
};

std::vector<int> streamsToCopy(const std::string& url) {
    const auto input = openInput(url);
    std::vector<int> streams;
    for (int i = 0; i < input->getStreamCount(); ++i) {
        if (input->getCodecOfStream(i) != ffmpeg::Codec::Unknown)
            streams.push_back(i);
    }
    if (streams.empty())
        throw Failure(ExitCode::Input, url, "there is no H.264 or AAC stream to copy");
    return streams;
}

using Streams = std::vector<std::unique_ptr<CopiedStream>>;

/// The stream whose packet comes first, null when all are at their end.
CopiedStream* earliest(const Streams& streams) {
    CopiedStream* found = nullptr;
    for (const auto& stream : streams) {
        if (!stream->atEnd() && (found == nullptr || stream->time() < found->time()))
            found = stream.get();
    }
    return found;
}

ExitCode runRemux(const Program& program, const RemuxOptions& options) {
    const std::string& url = program.input.url;
    const auto indices = streamsToCopy(url);
    OutputClip clip(options.output);
    int64_t copied = 0;
    {
        Streams streams;
        for (const int index : indices) {
            auto stream = std::make_unique<CopiedStream>(url, index, clip);
            if (options.keepRotation)
                stream->keepRotation();
            streams.push_back(std::move(stream));
        }
        Progress progress("remux", "packets", std::nullopt, program.quiet);
        while (CopiedStream* const stream = earliest(streams)) {
            clip.write([&] { stream->copyOne(); });
            ++copied;
            progress.advance();
        }
    }
    clip.publish();
    if (!program.quiet)
        std::cout << oneLine(options.output) << ": " << copied << " packets of " << indices.size()
                  << (indices.size() == 1 ? " stream\n" : " streams\n");
    return ExitCode::Success;
}

} // namespace

void addRemuxCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<RemuxOptions>();
    CLI::App& command =
        addCommand(app, program, "remux", "Copy H.264 and AAC streams into an MP4 file",
                   [&program, options] { return runRemux(program, *options); });
    command.add_option("OUT", options->output, "MP4 file to write")->required();
    command.add_flag("--keep-rotation", options->keepRotation,
                     "Have players turn the copy as they turn the original");
    command.footer("Nothing is encoded again: packets are passed on as they are, in the order of\n"
                   "their decoding times. Streams of other codecs are left out.");
}

} // namespace tio::tool
