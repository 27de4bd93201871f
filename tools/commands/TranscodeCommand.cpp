#include "commands/Commands.h"
#include "media/ClipFrames.h"
#include "media/OutputClip.h"
#include "media/SoundTrack.h"
#include "terminal/Progress.h"

#include <TARN/videoio/OutputStream.h>
#include <TARN/videoio/VideoPacketEncoder.h>

#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

namespace tio::tool {

namespace {

struct TranscodeOptions {
    std::string output;
    std::map<std::string, std::string> encoder;
    int64_t from = 0;
    std::optional<int64_t> to; // inclusive
    bool noAudio = false;
};

using Picture = ClipFrames::Picture;

/// The picture side of the clip that is being written.
class PictureTrack {
public:
    PictureTrack(const OutputClip& clip, const Picture& first, ffmpeg::Rational unitTime,
                 const std::map<std::string, std::string>& options)
        : encoder(sizeOf(first), unitTime, options), stream(clip.context(), unitTime) {}

    void write(const Picture& picture) {
        writePackets(encoder.writeNextFrame(picture.frame->toRgb(), picture.time));
    }

    void finish() { writePackets(encoder.flush()); }

private:
    static tio::Vec<int, 2> sizeOf(const Picture& picture) { return picture.frame->toRgb().size; }

    void writePackets(const std::vector<ffmpeg::OutputPacket>& packets) {
        for (const auto& packet : packets)
            stream.writePacket(packet);
    }

    ffmpeg::VideoPacketEncoder encoder; // packets held by the stream refer to it
    ffmpeg::OutputStream stream;
};

/// Writes pictures and sound side by side.
class Transcoding {
public:
    Transcoding(const Program& ofProgram, const TranscodeOptions& ofCommand)
        : program(ofProgram),
          options(ofCommand),
          frames(program.input, [&](const std::string& text) {
              if (!program.quiet)
                  printError(text);
          }) {}

    int64_t run() {
        auto picture = frames.read(options.from);
        if (!picture.frame)
            throw Failure(ExitCode::Input, program.input.url,
                          "there is no frame " + std::to_string(options.from));
        OutputClip clip(options.output);
        {
            // Both are made before the first packet is written: each announces its stream.
            auto pictures = clip.write([&] {
                return std::make_unique<PictureTrack>(clip, picture, frames.unitTime(),
                                                      options.encoder);
            });
            const auto sound = openSound(clip, picture.time);
            writeAll(clip, *pictures, sound.get(), std::move(picture));
            clip.write([&] { pictures->finish(); });
        }
        clip.publish();
        return written;
    }

private:
    std::unique_ptr<SoundTrack> openSound(const OutputClip& clip, ffmpeg::Rational start) const {
        if (options.noAudio || frames.clip()->hasAudioStream() == 0)
            return nullptr;
        if (std::filesystem::is_fifo(program.input.url)) // the sound is read beside the pictures
            throw Failure(ExitCode::Input, program.input.url,
                          "a pipe can be read for the pictures or for the sound; see --no-audio");
        return std::make_unique<SoundTrack>(program.input.url, clip, start);
    }

    // The sound follows the pictures closely, so that little of either waits in memory.
    void writeAll(const OutputClip& clip, PictureTrack& pictures, SoundTrack* sound,
                  Picture picture) {
        Progress progress("transcode", "frames", stepCount(), program.quiet);
        ffmpeg::Rational last = picture.time;
        ffmpeg::Rational duration = frames.unitTime();
        for (int64_t number = options.from; picture.frame; picture = frames.read(++number)) {
            picture.time = picture.time + shift;
            if (written > 0)
                duration = distanceTo(picture, last, duration);
            last = picture.time;
            if (sound != nullptr)
                sound->writeUpTo(last);
            clip.write([&] { pictures.write(picture); });
            ++written;
            progress.advance();
            if (options.to && number >= *options.to)
                break;
        }
        if (sound != nullptr)
            sound->finishAt(options.to ? std::optional(last + duration) : std::nullopt);
    }

    // Where clips were joined times begin anew. A file has to go on: from there all are shifted.
    ffmpeg::Rational distanceTo(Picture& picture, ffmpeg::Rational last, ffmpeg::Rational usual) {
        if (picture.time <= last) {
            shift = shift + (last + usual - picture.time);
            picture.time = last + usual;
        }
        return picture.time - last;
    }

    [[nodiscard]] std::optional<int64_t> stepCount() const {
        std::optional<int64_t> last = options.to;
        if (!last && frames.frameCount())
            last = *frames.frameCount() - 1;
        if (!last)
            return std::nullopt;
        return *last - options.from + 1;
    }

    const Program& program;
    const TranscodeOptions& options;
    ClipFrames frames;
    ffmpeg::Rational shift; // of the times
    int64_t written = 0;
};

ExitCode runTranscode(const Program& program, const TranscodeOptions& options) {
    if (options.to && *options.to < options.from)
        throw Failure(ExitCode::Usage, program.input.url, "--to lies before --from");
    const int64_t frames = Transcoding(program, options).run();
    if (!program.quiet)
        std::cout << oneLine(options.output) << ": " << frames << " frames\n";
    return ExitCode::Success;
}

void addEncoderOption(CLI::App& command, const std::shared_ptr<TranscodeOptions>& options,
                      const std::string& name, const std::string& description,
                      const CLI::Validator& check) {
    command
        .add_option_function<std::string>(
            "--" + name,
            [options, name](const std::string& value) { options->encoder[name] = value; },
            description)
        ->check(check);
}

} // namespace

void addTranscodeCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<TranscodeOptions>();
    CLI::App& command =
        addCommand(app, program, "transcode", "Encode a clip anew, as H.264 and AAC in MP4",
                   [&program, options] { return runTranscode(program, *options); });
    command.add_option("OUT", options->output, "MP4 file to write")->required();
    addEncoderOption(command, options, "preset", "Speed of the H.264 encoder [veryfast]",
                     CLI::IsMember({"ultrafast", "superfast", "veryfast", "faster", "fast",
                                    "medium", "slow", "slower", "veryslow", "placebo"}));
    addEncoderOption(command, options, "crf", "Quality of the pictures, less is better [23]",
                     CLI::Range(0, 51, ""));
    addEncoderOption(command, options, "bitrate", "Bits per second of the pictures",
                     CLI::Range(1, std::numeric_limits<int>::max(), ""));
    command.add_option("--from", options->from, "First frame [0]")->check(CLI::NonNegativeNumber);
    command.add_option("--to", options->to, "Last frame, inclusive [the end]")
        ->check(CLI::NonNegativeNumber);
    command.add_flag("--no-audio", options->noAudio, "Leave the sound out");
    addIndexOption(command, program, "Seek to --from with a stored index");
    command.footer(
        "Pictures are written upright and keep their times; sound keeps its place beside\n"
        "them, with silence where it is missing.");
}

} // namespace tio::tool
