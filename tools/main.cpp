#include "commands/Commands.h"
#include "media/OutputFile.h"
#include "terminal/Interruption.h"

#include <TARN/logging/log.h>
#include <TARN/videoio/Versions.h>

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace tio::tool {

CLI::App& addCommand(CLI::App& app, Program& program, const std::string& name,
                     const std::string& description, std::function<ExitCode()> run,
                     const InputArgument& input) {
    CLI::App& command = *app.add_subcommand(name, description);
    command.add_option(input.name, program.input.url, input.description)->required()->type_name("");
    command.add_flag("-q,--quiet", program.quiet, "Print errors, and what was asked for, only");
    command.add_flag("-v,--verbose", program.verbose,
                     "Print the log of the library and of FFmpeg to standard error");
    command.callback([&program, run = std::move(run)] { program.command = run; });
    return command;
}

CLI::Option* addIndexOption(CLI::App& command, Program& program, const std::string& description) {
    return command.add_option("--index", program.input.index, description)->type_name("FILE");
}

CLI::Validator atLeast(int64_t least) {
    return CLI::Range(least, int64_t{1} << 62).description("");
}

namespace {

constexpr const char* description = "Looks into video clips, takes frames out by number, checks "
                                    "that seeking is exact, and writes clips and pictures.";

constexpr const char* footer = R"(Examples:
  tarn-videoio info clip.mp4
  tarn-videoio info clip.mp4 --json --count
  tarn-videoio frames clip.mp4 -o frames --from 100 --to 199 --every 10
  tarn-videoio frames clip.mp4 --frame 42 -o frame42.png
  tarn-videoio index clip.mp4 -o clip.index
  tarn-videoio verify clip.mp4 --index clip.index
  tarn-videoio remux clip.ts copy.mp4
  tarn-videoio transcode clip.mkv small.mp4 --crf 28 --from 100 --to 199
  tarn-videoio image photo.jpg photo.png
  tarn-videoio sheet clip.mp4 -o sheet.png
  tarn-videoio sound clip.mp4 -o clip.wav --from 1.5 --to 2.5
  tarn-videoio wave clip.mp4 -o wave.png
  tarn-videoio nals clip.h264

Exit codes:
  0    success
  1    verify found frames that disagree
  2    wrong usage
  3    a clip or an index cannot be read, or has no such frame
  4    output cannot be written
  130  interrupted by Ctrl-C (other signals: 128 and the signal's number)

"tarn-videoio COMMAND --help" explains a command.)";

// The library reports each failure as an exception too, which becomes the one line that the user
// reads. The log beside it is for those who ask.
void setUpLogging(bool verbose) {
    // The library notes damaged packets that it passes over on std::cerr, beside its log. The
    // program's own lines go through stdio.
    if (!verbose)
        std::cerr.rdbuf(nullptr);
    log::setSink([verbose](const std::string& logger, log::Level level, const std::string& text) {
        if (!verbose)
            return;
        // FFmpeg's lines end in a line end or a zero character.
        const size_t end = text.find_last_not_of(std::string("\n\r\0", 3));
        const std::string line = logger + ' ' + std::to_string(static_cast<int>(level)) + ": " +
                                 oneLine(text.substr(0, end + 1)) + '\n';
        std::fputs(line.c_str(), stderr);
    });
}

// What is left in the buffer of standard output may be what does not fit on a full disk.
void flushStandardOutput() {
    errno = 0;
    std::cout.flush();
    if (!std::cout) {
        const std::string reason =
            errno != 0 ? std::generic_category().message(errno) : "Cannot be written";
        throw Failure(ExitCode::Output, "standard output", reason);
    }
}

std::string versionText() {
    std::string text = "tarn-videoio " TARN_VERSION "\nFFmpeg " + ffmpeg::loadedRelease();
    for (const ffmpeg::LibraryVersion& library : ffmpeg::versions())
        text += "\n  " + library.name + ": compiled against " + library.compiled.toString() +
                ", loaded " + library.loaded.toString();
    return text;
}

// Prints footers as they are written: newer releases of CLI11 would break their lines again.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override {
        const std::string help = CLI::Formatter::make_help(app, std::move(name), mode);
        return mode == CLI::AppFormatMode::Sub ? help : help + CLI::Formatter::make_footer(app);
    }
    std::string make_footer(const CLI::App* /*app*/) const override { return {}; }
};

/// The line that explains the command that was named, or all of them.
std::string helpFor(const CLI::App& app) {
    const auto named = app.get_subcommands();
    return "tarn-videoio " + (named.empty() ? "" : named.front()->get_name() + ' ') + "--help";
}

int runProgram(int argc, char** argv) {
    CLI::App app{description, "tarn-videoio"};
    app.formatter(std::make_shared<HelpFormatter>()); // of the commands too
    app.footer(footer);
    app.set_version_flag("--version", versionText);
    app.require_subcommand(1);
    Program program;
    addInfoCommand(app, program);
    addFramesCommand(app, program);
    addIndexCommand(app, program);
    addVerifyCommand(app, program);
    addRemuxCommand(app, program);
    addTranscodeCommand(app, program);
    addImageCommand(app, program);
    addSheetCommand(app, program);
    addSoundCommand(app, program);
    addWaveCommand(app, program);
    addNalsCommand(app, program);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& request) { // --help or --version
        app.exit(request);
        flushStandardOutput();
        return 0;
    } catch (const CLI::ParseError& error) {
        printError(std::string(error.what()) + "; see " + helpFor(app));
        return static_cast<int>(ExitCode::Usage);
    }
    setUpLogging(program.verbose);
    protectInput(program.input.url);
    try {
        const ExitCode code = reading(program.input.url, program.command);
        flushStandardOutput();
        return static_cast<int>(code);
    } catch (const Failure& failure) {
        if (failure.code() == ExitCode::Usage)
            throw Failure(failure, "; see " + helpFor(app));
        throw;
    }
}

} // namespace

} // namespace tio::tool

int main(int argc, char** argv) {
    using namespace tio::tool;
    endCleanlyOnSignals();
    try {
        return runProgram(argc, argv);
    } catch (const Failure& failure) {
        // What was found out before it is still an answer.
        std::cout.flush();
        printError(failure.what());
        return static_cast<int>(failure.code());
    }
}
