#include "commands/Commands.h"
#include "media/ClipFrames.h"
#include "media/EncodingOptions.h"
#include "media/OutputClip.h"
#include "media/SoundTrack.h"
#include "media/StoredPictures.h"
#include "terminal/Progress.h"

#include <iostream>
#include <memory>
#include <optional>
#include <utility>

namespace tio::tool {

namespace {

using ffmpeg::Rational;
using Picture = ClipFrames::Picture;

struct TranscodeOptions {
    std::string output;
    EncodingOptions encoding;
    PictureOptions pictures;
    int64_t from = 0;
    std::optional<int64_t> to; // inclusive
    bool noAudio = false;
};

// How long a picture is shown of which nothing is known but that it is there.
const Rational usualDuration(1, 25); // seconds

/// Puts pictures into a clip, at their own times or at a steady rate.
class PictureTrack {
public:
    PictureTrack(OutputClip& clip, std::optional<Rational> steadyRate)
        : output(clip), rate(steadyRate) {}

    /// @param begin, end  between which the picture is shown in the output, in seconds
    void write(const ffmpeg::Image& picture, const Rational& begin, const Rational& end) {
        output.write([&](ffmpeg::ClipWriter& clip) {
            if (!rate) {
                clip.writePicture(picture, begin, end - begin);
                ++written;
                return;
            }
            for (; Rational(written, 1) / *rate < end; ++written)
                clip.writePicture(picture);
        });
    }

    [[nodiscard]] int64_t count() const { return written; }

private:
    OutputClip& output;
    std::optional<Rational> rate; // pictures per second
    int64_t written = 0;
};

/// Writes pictures and sound side by side.
class Transcoding {
public:
    Transcoding(const Program& ofProgram, const TranscodeOptions& ofCommand)
        : program(ofProgram),
          options(ofCommand),
          writing(options.encoding.forClip(options.output)),
          frames(program.input, chosenPictures(), [&](const std::string& text) {
              if (!program.quiet)
                  printError(text);
          }) {}

    /// @returns the number of pictures that were written
    int64_t run() {
        auto picture = frames.readRequired(options.from);
        if (options.to && frames.frameCount() && *options.to >= *frames.frameCount())
            frames.failNoSuchFrame(*options.to);
        const auto sound = openSound();
        if (sound) {
            writing.audioRate = sound->rate();
            writing.audioChannels = sound->channels();
        }
        OutputClip clip(options.output, writing);
        PictureTrack pictures(clip, writing.rate);
        std::optional<SoundTrack> track;
        if (sound)
            track.emplace(*sound, clip, picture.time);
        writeAll(std::move(picture), pictures, track ? &*track : nullptr);
        clip.finish();
        return pictures.count();
    }

private:
    // Samples that the output can hold as they are do not go through RGB.
    PictureOptions chosenPictures() {
        PictureOptions chosen = options.pictures;
        if (canBeReadAgain(program.input.url))
            chooseStoredPictures(openInput(program.input.url), chosen, writing);
        return chosen;
    }

    [[nodiscard]] std::unique_ptr<SoundSource> openSound() const {
        if (options.noAudio || frames.clip()->hasAudioStream() == 0)
            return nullptr;
        return std::make_unique<SoundSource>(program.input.url);
    }

    // The sound follows the pictures closely, so that of a live source little of either waits.
    void writeAll(Picture picture, PictureTrack& pictures, SoundTrack* sound) {
        Progress progress("transcode", "frames", stepCount(), program.quiet);
        const Rational start = picture.time;
        Rational time = start;
        usual = durationOf(picture);
        for (int64_t number = options.from; !picture.image.empty(); ++number) {
            const bool last = options.to && number >= *options.to;
            auto next = last ? Picture() : frames.read(number + 1);
            const Rational end =
                next.image.empty() ? time + durationOf(picture) : timeAfter(time, next);
            pictures.write(picture.image, time - start, end - start);
            if (sound != nullptr)
                sound->writeUpTo(end);
            progress.advance();
            usual = end - time;
            time = end;
            picture = std::move(next);
        }
        if (sound != nullptr && !options.to)
            sound->writeRest();
    }

    [[nodiscard]] Rational durationOf(const Picture& picture) const {
        return Rational() < picture.duration ? picture.duration : usual;
    }

    // Where clips were joined times begin again. A file has to go on: from there all are shifted.
    Rational timeAfter(const Rational& time, const Picture& next) {
        if (next.time + shift <= time)
            shift = time + usual - next.time;
        return next.time + shift;
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
    ffmpeg::ClipWriterOptions writing;
    ClipFrames frames;
    Rational shift; // of the times
    Rational usual = usualDuration;
};

ExitCode runTranscode(const Program& program, const TranscodeOptions& options) {
    requireClipName(options.output);
    if (options.to && *options.to < options.from)
        throw Failure(ExitCode::Usage, program.input.url, "--to lies before --from");
    const int64_t frames = Transcoding(program, options).run();
    if (!program.quiet)
        std::cout << oneLine(options.output) << ": " << frames << " frames\n";
    return ExitCode::Success;
}

} // namespace

void addTranscodeCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<TranscodeOptions>();
    CLI::App& command = addCommand(app, program, "transcode", "Encode a clip again, with its sound",
                                   [&program, options] { return runTranscode(program, *options); });
    command.add_option("OUT", options->output, "Clip to write: .mp4, .m4v, .mov, .mkv or .webm")
        ->required();
    addEncodingOptions(command, options->encoding);
    command
        .add_option("--format", options->encoding.clip.pixelFormat,
                    "How pixels are stored, such as yuv422p10le [as in the clip]")
        ->type_name("NAME");
    addSizeOption(command, options->pictures);
    addStreamOptions(command, options->pictures);
    command.add_option("--from", options->from, "First frame [0]")
        ->check(atLeast(0))
        ->type_name("N");
    command.add_option("--to", options->to, "Last frame, itself included [the last]")
        ->check(atLeast(0))
        ->type_name("N");
    command
        .add_option("--audio-codec", options->encoding.clip.audioCodec,
                    "aac, opus, flac, alac, pcm or an encoder of FFmpeg's [what is usual]")
        ->type_name("NAME");
    command.add_flag("--no-audio", options->noAudio, "Leave the sound out");
    addIndexOption(command, program, "Take the frame index from a stored file");
    command.footer(
        "Pictures are written upright and keep their times; sound keeps its place beside\n"
        "them, to the sample, with silence where it is missing.");
}

} // namespace tio::tool
