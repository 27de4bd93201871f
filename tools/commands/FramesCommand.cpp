#include "commands/Commands.h"
#include "media/ClipFrames.h"
#include "media/ImageWriter.h"
#include "media/OutputFile.h"
#include "media/TimeList.h"
#include "terminal/Progress.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace tio::tool {

namespace {

struct FramesOptions {
    std::string output;
    int64_t from = 0;
    std::optional<int64_t> to; // inclusive; without it, to the end
    int64_t every = 1;
    std::optional<int64_t> single; // --frame: one frame, and `output` is a file
    std::string format;            // lower-case name; empty unless given
    std::string times;             // --times: the frames on screen at these times
};

// The name decides where --format does not: a file that is called .png but holds another format
// would puzzle its next reader.
ffmpeg::ImageFileType formatOf(const FramesOptions& options) {
    std::string extension = '.' + options.format;
    if (options.format.empty() && options.single)
        extension = CLI::detail::to_lower(std::filesystem::path(options.output).extension());
    const auto known = ffmpeg::typeExtensionMap.find(extension);
    return known != ffmpeg::typeExtensionMap.end() ? known->second : ffmpeg::ImageFileType::Png;
}

[[noreturn]] void failNoSuchFrame(const InputOptions& input, int64_t number, int64_t count) {
    std::string reason = "there is no frame " + std::to_string(number) + ": ";
    if (count == 0)
        reason += "reading gives no picture that has a time";
    else
        reason += "frames run from 0 to " + std::to_string(count - 1);
    throw Failure(ExitCode::Input, input.url, reason);
}

/// Takes frames out of one clip.
class Extraction {
public:
    Extraction(const Program& ofProgram, const FramesOptions& ofCommand)
        : program(ofProgram),
          options(ofCommand),
          type(formatOf(options)),
          write(imageWriter(type)),
          clip(program.input, [this](const std::string& text) { warn(text); }) {}

    void writeSingle() {
        const auto picture = readRequired(*options.single);
        write(picture.frame->toRgb(), options.output);
        if (!program.quiet)
            std::cout << oneLine(options.output) << ": frame " << *options.single << " at "
                      << text(picture.time) << " s\n";
    }

    void writeRange() {
        auto picture = readRequired(options.from);
        if (options.to && clip.frameCount() && *options.to >= *clip.frameCount())
            failNoSuchFrame(program.input, *options.to, *clip.frameCount());
        makeFolder(options.output);
        int64_t written = 0;
        {
            Progress progress("frames", "frames", stepCount(), program.quiet);
            for (int64_t number = options.from; picture.frame; number += options.every) {
                write(picture.frame->toRgb(), pathOf(number));
                ++written;
                progress.advance();
                if (options.to && *options.to - number < options.every)
                    break;
                picture = clip.read(number + options.every);
            }
        }
        if (!program.quiet)
            std::cout << oneLine(options.output) << ": " << written << " frames written\n";
        if (!picture.frame && options.to)
            failNoSuchFrame(program.input, *options.to, *clip.frameCount());
    }

    void writeAtTimes(const std::vector<ffmpeg::Rational>& times) {
        std::set<int64_t> numbers;
        reading(program.input.url, [&] {
            for (const ffmpeg::Rational& time : times)
                numbers.insert(clip.byNumber().frameNumberAt(time));
        });
        makeFolder(options.output);
        {
            Progress progress("frames", "frames", static_cast<int64_t>(numbers.size()),
                              program.quiet);
            reading(program.input.url, [&] {
                clip.byNumber().readFrames(
                    {numbers.begin(), numbers.end()}, [&](const auto& picture) {
                        write(picture.frame->toRgb(), pathOf(picture.number));
                        progress.advance();
                        return true;
                    });
            });
        }
        if (!program.quiet)
            std::cout << oneLine(options.output) << ": " << numbers.size() << " frames written\n";
    }

private:
    ClipFrames::Picture readRequired(int64_t number) {
        auto picture = clip.read(number);
        if (!picture.frame)
            failNoSuchFrame(program.input, number, *clip.frameCount());
        return picture;
    }

    /// How many frames will be written, where that is known.
    [[nodiscard]] std::optional<int64_t> stepCount() const {
        std::optional<int64_t> last = options.to;
        if (!last && clip.frameCount())
            last = *clip.frameCount() - 1;
        if (!last)
            return std::nullopt;
        return (*last - options.from) / options.every + 1;
    }

    [[nodiscard]] std::string pathOf(int64_t number) const {
        char name[48];
        std::snprintf(name, sizeof name, "frame-%06lld", static_cast<long long>(number));
        return std::filesystem::path(options.output) / (name + imageExtension(type));
    }

    void warn(const std::string& text) const {
        if (!program.quiet)
            printError(text);
    }

    const Program& program;
    const FramesOptions& options;
    ffmpeg::ImageFileType type;
    ImageWriter write;
    ClipFrames clip;
};

ExitCode runFrames(const Program& program, const FramesOptions& options) {
    if (options.to && *options.to < options.from)
        throw Failure(ExitCode::Usage, program.input.url, "--to lies before --from");
    const auto times =
        options.times.empty() ? std::vector<ffmpeg::Rational>() : parseTimes(options.times);
    if (!times.empty())
        requireReadAgain(program.input.url);
    Extraction extraction(program, options);
    if (!times.empty())
        extraction.writeAtTimes(times);
    else if (options.single)
        extraction.writeSingle();
    else
        extraction.writeRange();
    return ExitCode::Success;
}

constexpr const char* footer =
    R"(Frames are numbered from 0 in the order in which they are shown. A folder is
made where it is missing and receives files such as frame-000123.png; files of
the same name are replaced. Each file gets its name when it is complete.

Examples:
  tarn-videoio frames clip.mp4 -o frames
  tarn-videoio frames clip.mp4 -o frames --from 100 --to 199 --every 10
  tarn-videoio frames clip.mp4 --frame 42 -o frame42.png
  tarn-videoio frames clip.mp4 --times 1.5,2/3,00:01:02 -o frames)";

} // namespace

void addFramesCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<FramesOptions>();
    CLI::App& command =
        addCommand(app, program, "frames", "Write frames as pictures, named by frame number",
                   [&program, options] { return runFrames(program, *options); });
    command.add_option("-o,--output", options->output, "Folder, or the file with --frame")
        ->required()
        ->type_name("PATH");
    auto* from = command.add_option("--from", options->from, "First frame [0]");
    auto* to = command.add_option("--to", options->to, "Last frame, itself included [the last]");
    auto* every = command.add_option("--every", options->every, "Write each K-th frame [1]");
    auto* single = command.add_option("--frame", options->single, "Write this frame only");
    for (CLI::Option* option : {from, to, single})
        option->check(atLeast(0))->type_name("N");
    every->check(atLeast(1))->type_name("K");
    single->excludes(from)->excludes(to)->excludes(every);
    command.add_option("--times", options->times, "Write the frames on screen at these times")
        ->excludes(from)
        ->excludes(to)
        ->excludes(every)
        ->excludes(single)
        ->type_name("T,...");
    command.add_option("--format", options->format, "png, jpg or ppm [png]")
        ->transform(CLI::IsMember({"png", "jpg", "ppm"}, CLI::ignore_case))
        ->type_name("");
    addIndexOption(command, program, "Take the frame index from a stored file");
    command.footer(footer);
}

} // namespace tio::tool
