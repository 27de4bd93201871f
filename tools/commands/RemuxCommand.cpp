#include "commands/Commands.h"
#include "media/Mp4File.h"
#include "terminal/Progress.h"

#include <TARN/videoio/Metadata.h>
#include <TARN/videoio/OutputStream.h>
#include <TARN/videoio/PacketReader.h>

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
    bool dropRotation = false;
};

/// One stream on its way from the input to the output.
class CopiedStream {
public:
    explicit CopiedStream(int streamIndex) : index(streamIndex) {}

    // Matroska stores no decoding times, and FFmpeg guesses them only once it knows how pictures
    // are reordered. So the first packets wait for the first with a time and get theirs from it.
    void add(std::shared_ptr<ffmpeg::InputPacket> packet) {
        if (!packet->hasDts() && lastDts)
            packet->setDts(*lastDts + packet->getUnitTime());
        waiting.push_back(std::move(packet));
        if (!waiting.back()->hasDts())
            return;
        lastDts = waiting.back()->getDts();
        for (size_t i = waiting.size(); i-- > 1 && !waiting[i - 1]->hasDts();)
            waiting[i - 1]->setDts(waiting[i]->getDts() - lengthOf(*waiting[i - 1]));
    }

    /// Whether its first packet may be written.
    [[nodiscard]] bool isReady() const {
        return !waiting.empty() && (waiting.front()->hasDts() || waiting.size() >= mostGuessed);
    }

    [[nodiscard]] bool isEmpty() const { return waiting.empty(); }

    /// Seconds at which the waiting packet is decoded, which is the order of packets in a file.
    [[nodiscard]] ffmpeg::Rational time() const { return waiting.front()->getDts(); }

    void open(const Mp4File& clip, const ffmpeg::Metadata& original, bool dropRotation) {
        output =
            std::make_unique<ffmpeg::OutputStream>(clip.context(), waiting.front()->getUnitTime());
        if (!dropRotation)
            output->setRotation(original.rotation / 90, original.mirrored);
    }

    [[nodiscard]] bool isOpen() const { return output != nullptr; }

    /// Whether the waiting packet has a time, later than that of the one before, as MP4 wants it.
    [[nodiscard]] bool isInOrder() const {
        return waiting.front()->hasDts() && (!copiedDts || *copiedDts < waiting.front()->getDts());
    }

    void copyOne() {
        copiedDts = waiting.front()->getDts();
        output->writePacket(*waiting.front());
        waiting.pop_front();
    }

    const int index;

private:
    [[nodiscard]] static ffmpeg::Rational lengthOf(const ffmpeg::InputPacket& packet) {
        return std::max(packet.getDuration(), packet.getUnitTime());
    }

    static constexpr size_t mostGuessed = 64; // four times as far as H.264 can reorder

    std::unique_ptr<ffmpeg::OutputStream> output; // its packets refer to the input
    std::deque<std::shared_ptr<ffmpeg::InputPacket>> waiting;
    std::optional<ffmpeg::Rational> lastDts;   // of what was added
    std::optional<ffmpeg::Rational> copiedDts; // of what was written
};

std::vector<int> streamsToCopy(ffmpeg::InputFormatContext& input) {
    std::vector<int> streams;
    for (int i = 0; i < input.getStreamCount(); ++i) {
        if (input.getCodecOfStream(i) != ffmpeg::Codec::Unknown)
            streams.push_back(i);
    }
    if (streams.empty())
        throw Failure(ExitCode::Input, input.getUrl(), "there is no H.264 or AAC stream to copy");
    return streams;
}

/// Copies what it is given to copy, reading the clip once.
class Copy {
public:
    Copy(std::shared_ptr<ffmpeg::InputFormatContext> opened, const std::vector<int>& indices,
         const Mp4File& output, const RemuxOptions& chosen, bool quiet)
        : input(std::move(opened)),
          reader(input, indices),
          streams(indices.begin(), indices.end()),
          clip(output),
          options(chosen),
          progress("remux", "packets", std::nullopt, quiet) {}

    void run() {
        readAhead();
        for (CopiedStream& stream : streams)
            if (!stream.isEmpty())
                clip.write([&] {
                    stream.open(clip, ffmpeg::metadataOf(*input, stream.index),
                                options.dropRotation);
                });
        while (CopiedStream* const stream = earliest())
            copyOne(*stream);
        while (CopiedStream* const stream = readOne())
            while (stream->isReady())
                copyOne(*stream);
        for (CopiedStream& stream : streams) // without times they will be refused
            while (!stream.isEmpty())
                copyOne(stream);
    }

    [[nodiscard]] int64_t packetCount() const { return copied; }

private:
    /// A file can be begun only when something is known of all its streams. Cameras announce a
    /// sound track that stays empty; past this many bytes it is left out.
    static constexpr int64_t mostReadAhead = 256 << 20;

    void readAhead() {
        const auto ready = [](const CopiedStream& stream) { return stream.isReady(); };
        while (bytesRead < mostReadAhead && !std::all_of(streams.begin(), streams.end(), ready))
            if (readOne() == nullptr)
                break;
    }

    /// The stream that has one more packet; null at the end.
    CopiedStream* readOne() {
        ffmpeg::PacketOfStream next = reader.getNextPacket();
        if (!next.packet)
            return nullptr;
        int size = 0;
        (void)next.packet->getData(size);
        bytesRead += size;
        for (CopiedStream& stream : streams) {
            if (stream.index == next.streamIndex) {
                stream.add(std::move(next.packet));
                return &stream;
            }
        }
        return nullptr; // not reached: the reader gives packets of these streams alone
    }

    /// The stream whose packet comes first, null when none is waiting.
    CopiedStream* earliest() {
        CopiedStream* found = nullptr;
        for (CopiedStream& stream : streams) {
            if (!stream.isEmpty() && (found == nullptr || stream.time() < found->time()))
                found = &stream;
        }
        return found;
    }

    void copyOne(CopiedStream& stream) {
        if (!stream.isOpen())
            throw Failure(ExitCode::Input, input->getUrl(),
                          "stream " + std::to_string(stream.index) +
                              " begins too far behind the others");
        if (!stream.isInOrder())
            throw Failure(ExitCode::Input, input->getUrl(),
                          "stream " + std::to_string(stream.index) +
                              " cannot be copied: its packets have no times, or times start over");
        clip.write([&] { stream.copyOne(); });
        ++copied;
        progress.advance();
    }

    std::shared_ptr<ffmpeg::InputFormatContext> input;
    ffmpeg::PacketReader reader;
    std::deque<CopiedStream> streams;
    const Mp4File& clip;
    RemuxOptions options;
    Progress progress;
    int64_t bytesRead = 0;
    int64_t copied = 0;
};

ExitCode runRemux(const Program& program, const RemuxOptions& options) {
    const auto input = openOnce(program.input.url);
    const std::vector<int> streams = streamsToCopy(*input);
    Mp4File clip(options.output);
    int64_t packets = 0;
    {
        Copy copy(input, streams, clip, options, program.quiet);
        copy.run();
        packets = copy.packetCount();
    }
    clip.publish();
    if (!program.quiet)
        std::cout << oneLine(options.output) << ": " << packets << " packets of " << streams.size()
                  << (streams.size() == 1 ? " stream\n" : " streams\n");
    const ffmpeg::EndReason end = input->getEndReason();
    if (end.kind == ffmpeg::EndReason::Kind::Error)
        throw Failure(ExitCode::Input, program.input.url,
                      "reading ended early: " + end.text + "; the packets before are in " +
                          options.output);
    return ExitCode::Success;
}

} // namespace

void addRemuxCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<RemuxOptions>();
    CLI::App& command =
        addCommand(app, program, "remux", "Copy H.264 and AAC streams into an MP4 file",
                   [&program, options] { return runRemux(program, *options); });
    command.add_option("OUT", options->output, "MP4 file to write")->required();
    command.add_flag("--drop-rotation", options->dropRotation,
                     "Have players show the copy as it is stored, not turned as the original");
    command.footer("Nothing is encoded again: packets are passed on as they are. Streams of other\n"
                   "codecs are left out.");
}

} // namespace tio::tool
