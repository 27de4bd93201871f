#include "Commands.h"
#include "MemoryFile.h"
#include "OutputFile.h"

#include <TARN/videoio/InputStream.h>

#include <iostream>
#include <memory>

namespace tio::tool {

namespace {

// Two frames of one time can be indexed but not loaded again, so what was stored is loaded here
// before the file gets its name.
ExitCode runIndex(const Program& program, const std::string& output) {
    const auto context = openInput(program.input.url);
    ffmpeg::InputStream packets(context, context->findBestVideoStreamIndex());
    const int64_t count = packets.getFrameCount();
    const MemoryFile stored;
    packets.storeSeekingIndex(stored.path());
    try {
        packets.loadSeekingIndex(stored.path());
    } catch (const std::exception&) {
        throw Failure(ExitCode::Input, program.input.url,
                      "no index can be stored: several frames have the same time, or none");
    }
    OutputFile file(output);
    stored.forEachBlock([&](const void* data, size_t size) { file.write(data, size); });
    file.publish();
    if (!program.quiet)
        std::cout << oneLine(output) << ": " << count << " frames\n";
    return ExitCode::Success;
}

} // namespace

void addIndexCommand(CLI::App& app, Program& program) {
    auto output = std::make_shared<std::string>();
    CLI::App& command =
        addCommand(app, program, "index", "Store the seeking index of the best video stream",
                   [&program, output] { return runIndex(program, *output); });
    command.add_option("-o,--output", *output, "File to write")->required()->type_name("FILE");
    command.footer("Other commands take the file with --index, and need not read the whole clip "
                   "before the first seek.");
}

} // namespace tio::tool
