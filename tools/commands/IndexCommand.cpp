#include "commands/Commands.h"
#include "media/Input.h"
#include "media/OutputFile.h"

#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/InputStream.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iostream>
#include <memory>
#include <system_error>
#include <vector>

namespace tio::tool {

namespace {

struct IndexOptions {
    std::string output;
    bool frames = false;
    bool checksums = false;
};

// The library writes under a name of its own and renames, as OutputFile does.
void storeFrameIndex(const Program& program, const IndexOptions& options) {
    requireNotInput(options.output);
    const auto context = openInput(program.input.url);
    ffmpeg::FrameIndexOptions making;
    making.checksums = options.checksums;
    const auto index =
        reading(program.input.url, [&] { return ffmpeg::FrameIndex::build(context, making); });
    writing(options.output, [&] { index.save(options.output); });
    if (!program.quiet)
        std::cout << oneLine(options.output) << ": " << index.frameCount() << " frames"
                  << (index.hasChecksums() ? " with checksums" : "")
                  << (index.isDamaged() ? ", damaged" : "") << '\n';
}

// Two frames of one time can be indexed but not loaded again.
bool canBeLoaded(ffmpeg::InputStream& packets) {
    const std::vector<ffmpeg::Rational> times = packets.getFrameMsMap();
    return std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()) == times.end();
}

void storeSeekingIndex(const Program& program, const std::string& output) {
    const auto clip = openInput(program.input.url);
    ffmpeg::InputStream packets(clip, clip->findBestVideoStreamIndex());
    const int64_t count = packets.getFrameCount();
    if (!canBeLoaded(packets))
        throw Failure(ExitCode::Input, program.input.url,
                      "no index can be stored: several frames have the same time, or none");
    OutputFile file(output);
    file.makeWay();
    errno = 0;
    try {
        packets.storeSeekingIndex(file.pathToWrite());
    } catch (const std::exception& error) { // it names the temporary file
        throw Failure(ExitCode::Output, output,
                      errno != 0 ? std::generic_category().message(errno)
                                 : reasonOf(error, output));
    }
    file.publish();
    if (!program.quiet)
        std::cout << oneLine(output) << ": " << count << " frames\n";
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
