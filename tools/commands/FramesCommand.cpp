#include "commands/Commands.h"
#include "media/ClipFrames.h"
#include "media/EncodingOptions.h"
#include "media/ImageWriter.h"
#include "media/OutputClip.h"
#include "media/OutputFile.h"
#include "media/StoredPictures.h"
#include "media/TimeList.h"
#include "terminal/Progress.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace tio::tool {

namespace {

struct FramesOptions {
    std::string output;
    int64_t from = 0;
    std::optional<int64_t> to; // inclusive; without it, to the end
    int64_t every = 1;
    std::optional<int64_t> single; // --frame: one frame, and `output` is a file
    std::string format;            // empty unless given
    std::string times;             // --times: the frames on screen at these times
    PictureOptions pictures;
    EncodingOptions encoding; // where `output` is a clip

    [[nodiscard]] bool intoClip() const { return !single && isClipName(output); }
};

// The name decides where --format does not: a file that is called .png but holds another format
// would puzzle its next reader.
ImageFormat formatOf(const FramesOptions& options) {
    if (options.intoClip())
        return imageFormatNamed("png"); // 8-bit RGB, whatever the clip stores of it
    const std::string extension = std::filesystem::path(options.output).extension();
    if (!options.single || (extension.empty() && options.format.empty()))
        return imageFormatNamed(options.format.empty() ? "png" : options.format);
    if (options.format.empty())
        return imageFormatOf(options.output);
    ImageFormat format = imageFormatNamed(options.format);
    const auto named = ffmpeg::typeExtensionMap.find(CLI::detail::to_lower(extension));
    if (named != ffmpeg::typeExtensionMap.end() && named->second != format.type)
        throw Failure(ExitCode::Usage, options.output,
                      "the name is not that of a picture in the format " + options.format);
    return format;
}

void checkFormats(const FramesOptions& options) {
    if (options.intoClip())
        return;
    if (!options.encoding.areUsual())
        throw Failure(
            ExitCode::Usage, options.output,
            "--codec, --preset, --crf, --bitrate, --rate and --fragmented are for a clip, which is "
            "called .mp4, .m4v, .mov, .mkv or .webm at the end");
    const auto names = imageFormatNames();
    if (!options.format.empty() &&
        std::find(names.begin(), names.end(), options.format) == names.end())
        throw Failure(ExitCode::Usage, "--format",
                      "there is no picture format " + options.format +
                          ", but png, png16, grey8, grey16, jpg, ppm and ppm16");
}

/// Takes frames out of one clip.
class Extraction {
public:
    Extraction(const Program& ofProgram, const FramesOptions& ofCommand)
        : program(ofProgram),
          options(ofCommand),
          format(formatOf(options)),
          write(imageWriter(format)),
          clip(program.input, readerOptions(), [this](const std::string& text) { warn(text); }) {}

    void writeSingle() {
        const auto picture = clip.readRequired(*options.single);
        write(picture.image.view(), options.output);
        if (!program.quiet)
            std::cout << oneLine(options.output) << ": frame " << *options.single << " at "
                      << text(picture.time) << " s\n";
    }

    void writeRange() {
        auto picture = clip.readRequired(options.from);
        if (options.to && clip.frameCount() && *options.to >= *clip.frameCount())
            clip.failNoSuchFrame(*options.to);
        makeFolder(options.output);
        int64_t written = 0;
        {
            Progress progress("frames", "frames", stepCount(), program.quiet);
            for (int64_t number = options.from; !picture.image.empty(); number += options.every) {
                write(std::as_const(picture.image).view(), pathOf(number));
                ++written;
                progress.advance();
                if (options.to && *options.to - number < options.every)
                    break;
                picture = clip.read(number + options.every);
            }
        }
        report(written);
        if (picture.image.empty() && options.to)
            clip.failNoSuchFrame(*options.to);
    }

    void writeAtTimes(const std::vector<ffmpeg::Rational>& times) {
        std::set<int64_t> numbers;
        reading(program.input.url, [&] {
            for (const ffmpeg::Rational& time : times)
                numbers.insert(clip.byNumber().frameNumberAt(time));
        });
        if (options.intoClip())
            writeClip({numbers.begin(), numbers.end()});
        else
            writePictures({numbers.begin(), numbers.end()});
    }

    void writeRangeIntoClip() {
        const int64_t count = clip.byNumber().frameCount();
        const int64_t last = options.to.value_or(count - 1);
        for (const int64_t number : {options.from, last})
            if (number >= count || count == 0)
                clip.failNoSuchFrame(number);
        std::vector<int64_t> numbers;
        for (int64_t number = options.from; number <= last; number += options.every)
            numbers.push_back(number);
        writeClip(numbers);
    }

private:
    void writePictures(const std::vector<int64_t>& numbers) {
        makeFolder(options.output);
        readEach(numbers,
                 [&](const auto& picture) { write(picture.image.view(), pathOf(picture.number)); });
        report(static_cast<int64_t>(numbers.size()));
    }

    /// Each at its time, counted from that of the first, or at a steady rate.
    void writeClip(const std::vector<int64_t>& numbers) {
        OutputClip output(options.output, encoding);
        const ffmpeg::Rational start = clip.byNumber().frameTime(numbers.front());
        readEach(numbers, [&](const auto& picture) {
            output.write([&](ffmpeg::ClipWriter& writer) {
                if (encoding.rate)
                    writer.writePicture(picture.image);
                else
                    writer.writePicture(picture.image, picture.time - start, picture.duration);
            });
        });
        output.finish();
        report(static_cast<int64_t>(numbers.size()));
    }

    template <typename Work>
    void readEach(const std::vector<int64_t>& numbers, const Work& work) {
        Progress progress("frames", "frames", static_cast<int64_t>(numbers.size()), program.quiet);
        reading(program.input.url, [&] {
            clip.byNumber().readFrames(numbers, [&](const auto& picture) {
                work(picture);
                progress.advance();
                return true;
            });
        });
    }

    void report(int64_t written) const {
        if (!program.quiet)
            std::cout << oneLine(options.output) << ": " << written << " frames written\n";
    }

    // A clip gets the samples that are stored, where it can hold them.
    [[nodiscard]] PictureOptions readerOptions() {
        PictureOptions pictures = options.pictures;
        pictures.format = format.pixels;
        if (options.intoClip()) {
            encoding = options.encoding.forClip(options.output);
            chooseStoredPictures(openInput(program.input.url), pictures, encoding);
        }
        return pictures;
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
        return std::filesystem::path(options.output) / (name + format.extension);
    }

    void warn(const std::string& text) const {
        if (!program.quiet)
            printError(text);
    }

    const Program& program;
    const FramesOptions& options;
    ImageFormat format;
    ImageWriter write;
    ffmpeg::ClipWriterOptions encoding; // of a clip
    ClipFrames clip;
};

ExitCode runFrames(const Program& program, const FramesOptions& options) {
    if (options.to && *options.to < options.from)
        throw Failure(ExitCode::Usage, program.input.url, "--to lies before --from");
    if (options.single || options.intoClip())
        requireNotInput(options.output);
    checkFormats(options);
    const auto times =
        options.times.empty() ? std::vector<ffmpeg::Rational>() : parseTimes(options.times);
    if (!times.empty() || options.intoClip())
        requireReadAgain(program.input.url);
    Extraction extraction(program, options);
    if (!times.empty())
        extraction.writeAtTimes(times);
    else if (options.single)
        extraction.writeSingle();
    else if (options.intoClip())
        extraction.writeRangeIntoClip();
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
  tarn-videoio frames clip.mp4 --frame 42 -o frame42.png --format png16
  tarn-videoio frames clip.mp4 --times 1.5,2/3,00:01:02 -o frames --size 640x
  tarn-videoio frames clip.mp4 -o fast.mp4 --every 10 --rate 25)";

} // namespace

void addFramesCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<FramesOptions>();
    CLI::App& command =
        addCommand(app, program, "frames", "Write frames as pictures, named by frame number",
                   [&program, options] { return runFrames(program, *options); });
    command
        .add_option("-o,--output", options->output,
                    "Folder, or a clip to write; with --frame the picture")
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
    command
        .add_option_function<std::string>(
            "--format",
            [options](const std::string& name) {
                options->format = CLI::detail::to_lower(name);
                options->encoding.clip.pixelFormat = name;
            },
            "png, png16, grey8, grey16, jpg, ppm or ppm16 [png]; of a clip how\n"
            "pixels are stored, such as yuv444p")
        ->type_name("NAME");
    addEncodingOptions(command, options->encoding);
    addSizeOption(command, options->pictures);
    addStreamOptions(command, options->pictures);
    addIndexOption(command, program, "Take the frame index from a stored file");
    command.footer(footer);
}

} // namespace tio::tool
