#include "commands/Commands.h"
#include "media/Input.h"
#include "media/OutputFile.h"

#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/FrameReader.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iostream>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

namespace tio::tool {

namespace {

struct IndexOptions {
    std::string output;
    bool frames = false;
    bool checksums = false;
};

/// Makes the index, with its clip.
ffmpeg::FrameReader indexed(const Program& program, bool checksums) {
    requireReadAgain(program.input.url);
    const std::string& url = program.input.url;
    return decoding(url, ffmpeg::StreamType::Video, {}, [&] {
        ffmpeg::FrameReaderOptions options;
        options.checksums = checksums;
        ffmpeg::FrameReader reader(sourceOf(url), std::move(options));
        const int64_t count = reader.frameCount();
        if (count > 0)
            warnOfMissingEnd(openInput(url), reader.stream(),
                             reader.frameTime(count - 1) + reader.frameDuration(count - 1) -
                                 reader.frameTime(0));
        return reader;
    });
}

// The library writes under a name of its own and renames, as OutputFile does.
void storeFrameIndex(const Program& program, const IndexOptions& options) {
    requireNotInput(options.output);
    const auto index = indexed(program, options.checksums).index();
    writing(options.output, [&] { index.save(options.output); });
    if (!program.quiet)
        std::cout << oneLine(options.output) << ": " << index.frameCount() << " frames"
                  << (index.hasChecksums() ? " with checksums" : "")
                  << (index.isDamaged() ? ", damaged" : "") << '\n';
}

// The index of times is sorted, so that the frames of one whose times do not rise would have other
// numbers.
bool timesRise(const ffmpeg::FrameReader& reader) {
    const std::vector<int64_t> ticks = reader.ticks();
    return std::adjacent_find(ticks.begin(), ticks.end(), std::greater_equal<>()) == ticks.end();
}

[[noreturn]] void failWithoutTimes(const Program& program) {
    throw Failure(ExitCode::Input, program.input.url,
                  "no index can be stored: frames have no time, or times do not rise; index "
                  "--frames stores one of any clip");
}

void storeSeekingIndex(const Program& program, const std::string& output) {
    const auto reader = indexed(program, false);
    if (!timesRise(reader))
        failWithoutTimes(program);
    OutputFile file(output);
    file.makeWay();
    errno = 0;
    try {
        reader.index().exportSeekingIndex(file.pathToWrite());
    } catch (const std::exception&) { // it names the temporary file
        if (errno == 0)
            failWithoutTimes(program);
        throw Failure(ExitCode::Output, output, std::generic_category().message(errno));
    }
    file.publish();
    if (!program.quiet)
        std::cout << oneLine(output) << ": " << reader.frameCount() << " frames\n";
}

ExitCode runIndex(const Program& program, const IndexOptions& options) {
    if (options.frames || options.checksums)
        storeFrameIndex(program, options);
    else
        storeSeekingIndex(program, options.output);
    return ExitCode::Success;
}

} // namespace

void addIndexCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<IndexOptions>();
    CLI::App& command =
        addCommand(app, program, "index", "Store the seeking index of the best video stream",
                   [&program, options] { return runIndex(program, *options); });
    command.add_option("-o,--output", options->output, "File to write")
        ->required()
        ->type_name("FILE");
    command.add_flag("--frames", options->frames,
                     "Store an index that knows its clip, for frames and verify --reader");
    command.add_flag("--checksums", options->checksums,
                     "The same with a checksum of every picture; decodes the whole clip");
    command.footer("Other commands take the file with --index, and need not read the whole clip "
                   "before the first seek.");
}

} // namespace tio::tool
