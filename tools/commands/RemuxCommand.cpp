#include "commands/Commands.h"
#include "media/Input.h"
#include "media/OutputClip.h"
#include "media/OutputFile.h"
#include "media/TimeList.h"
#include "terminal/Progress.h"

#include <TARN/videoio/ClipCopier.h>

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace tio::tool {

namespace {

struct RemuxOptions {
    std::string output;
    std::string from;
    std::string to;
    std::vector<int> streams;
    bool dropRotation = false;
};

std::optional<ffmpeg::Rational> timeOf(const std::string& text, const std::string& option) {
    if (text.empty())
        return std::nullopt;
    const auto time = parseTime(text);
    if (!time)
        throw Failure(ExitCode::Usage, option, "\"" + text + "\" is no time in seconds");
    return time;
}

ffmpeg::ClipCopierOptions copierOptions(const RemuxOptions& chosen) {
    ffmpeg::ClipCopierOptions options;
    options.streams = chosen.streams;
    options.from = timeOf(chosen.from, "--from");
    options.to = timeOf(chosen.to, "--to");
    options.origin = ffmpeg::ClipOrigin::First;
    options.keepTurn = !chosen.dropRotation;
    options.keepBeginning = true;
    return options;
}

/// What the library throws names the clip or the copy; one of the names may hold the other.
Failure failureOf(const std::exception& error, const std::string& clip, const std::string& copy) {
    const std::string text = error.what();
    const bool ofCopy = text.find(copy) != std::string::npos;
    const bool ofClip = text.find(clip) != std::string::npos;
    if (ofCopy && !(ofClip && clip.size() > copy.size()))
        return {ExitCode::Output, copy, reasonOf(error, copy)};
    return {ExitCode::Input, clip, reasonOf(error, clip)};
}

bool isFileOrMissing(const std::string& path) {
    std::error_code unreadable; // shows when the file is opened
    const auto status = std::filesystem::status(path, unreadable);
    return std::filesystem::is_regular_file(status) ||
           (!std::filesystem::exists(status) && path.find("://") == std::string::npos);
}

/// Copies a clip, and removes what there is of the copy where a signal ends the program.
class Copying {
public:
    Copying(std::string clipName, const RemuxOptions& chosen)
        : clip(std::move(clipName)), copy(chosen.output) {
        requireNotInput(copy);
        const ffmpeg::ClipCopierOptions options = copierOptions(chosen);
        std::optional<SignalsHeldBack> heldBack; // not where opening may take for ever
        if (isFileOrMissing(clip) && isFileOrMissing(copy))
            heldBack.emplace();
        telling([&] { copier.emplace(clip, copy, options); });
        if (const std::string hidden = hiddenFile(); !hidden.empty())
            cleanup.emplace(hidden);
    }

    ffmpeg::CopiedClip run(bool quiet) {
        Progress progress("remux", "packets", std::nullopt, quiet);
        int64_t told = 0;
        ffmpeg::CopiedClip copied;
        telling([&] {
            copied = copier->run([&](const ffmpeg::CopyProgress& reached) {
                for (; told < reached.packets; ++told)
                    progress.advance();
                return true;
            });
        });
        cleanup.reset();
        return copied;
    }

private:
    template <typename Work>
    void telling(Work&& work) {
        try {
            work();
        } catch (const ffmpeg::TimeRefusal& refusal) {
            throw failureOf(refusal, clip, copy);
        } catch (const ffmpeg::ClipRefusal& refusal) {
            throw Failure(failureOf(refusal, clip, copy), ExitCode::Usage);
        } catch (const std::exception& error) {
            throw failureOf(error, clip, copy);
        }
    }

    std::string clip;
    std::string copy;
    std::optional<ffmpeg::ClipCopier> copier;
    std::optional<RemovedOnInterruption> cleanup;
};

void tell(const ffmpeg::CopiedClip& copied, const std::string& output) {
    const size_t count = copied.streams.size();
    std::cout << oneLine(output) << ": " << copied.packets << " packets of " << count
              << (count == 1 ? " stream\n" : " streams\n");
    if (copied.extraPictures > 0)
        std::cout << oneLine(output) << ": " << copied.extraPictures
                  << " pictures outside the range are shown, which others need\n";
}

ExitCode runRemux(const Program& program, const RemuxOptions& options) {
    const ffmpeg::CopiedClip copied = Copying(program.input.url, options).run(program.quiet);
    if (!program.quiet)
        tell(copied, options.output);
    if (!copied.failure.empty())
        throw Failure(ExitCode::Input, program.input.url,
                      "reading ended early: " +
                          reasonOf(std::runtime_error(copied.failure), program.input.url) +
                          "; the packets before are in " + options.output);
    return ExitCode::Success;
}

} // namespace

void addRemuxCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<RemuxOptions>();
    CLI::App& command =
        addCommand(app, program, "remux", "Copy a clip, or a part of it, without encoding it again",
                   [&program, options] { return runRemux(program, *options); });
    command.add_option("OUT", options->output, "File to write, in the container of its name")
        ->required();
    command
        .add_option("--from", options->from,
                    "Seconds at which a key picture stands [the beginning]")
        ->type_name("T");
    command.add_option("--to", options->to, "Seconds at which the copy ends [the end]")
        ->type_name("T");
    command
        .add_option("--stream", options->streams,
                    "Stream to copy; may be given again [pictures, sound, subtitles]")
        ->type_name("N")
        ->allow_extra_args(false);
    command.add_flag("--drop-rotation", options->dropRotation,
                     "Have players show the copy as it is stored, not turned as the original");
    command.footer("Packets are passed on as they are. Times are exact; what is shown or heard\n"
                   "first is at zero.");
}

} // namespace tio::tool
