#include "commands/Commands.h"
#include "media/ImageWriter.h"
#include "media/SoundSource.h"
#include "media/Waveform.h"
#include "terminal/Progress.h"

#include <iostream>
#include <memory>
#include <optional>

namespace tio::tool {

namespace {

constexpr int largest = 16384; // pixels

struct WaveOptions {
    std::string output;
    int width = 1600;
    int height = 320;
    std::optional<int> stream;
    SoundRange range;
};

Peaks readPeaks(const Program& program, const WaveOptions& options) {
    SoundSource sound(program.input.url, options.stream);
    sound.keepTo(options.range);
    Progress progress("wave", "blocks", std::nullopt, program.quiet);
    Peaks peaks(sound.rate());
    for (auto block = sound.next(); block.samples.count != 0; block = sound.next()) {
        peaks.add(block.samples);
        progress.advance();
    }
    if (peaks.channels() == 0)
        throw Failure(ExitCode::Input, program.input.url, "there is no sound");
    return peaks;
}

ExitCode runWave(const Program& program, const WaveOptions& options) {
    const ImageWriter write = imageWriter(imageFormatOf(options.output));
    const Peaks peaks = readPeaks(program, options);
    const auto picture =
        writing(options.output, [&] { return drawWaveform(peaks, options.height, options.width); });
    write(viewOf(picture), options.output);
    if (!program.quiet)
        std::cout << oneLine(options.output) << ": " << peaks.channels()
                  << (peaks.channels() == 1 ? " channel, " : " channels, ") << peaks.seconds()
                  << " s\n";
    return ExitCode::Success;
}

} // namespace

void addWaveCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<WaveOptions>();
    CLI::App& command = addCommand(app, program, "wave", "Draw the waveform of the sound",
                                   [&program, options] { return runWave(program, *options); });
    command
        .add_option("-o,--output", options->output, "Picture to write, in the format of its name")
        ->required()
        ->type_name("FILE");
    command.add_option("--width", options->width, "Width of the picture in pixels [1600]")
        ->check(CLI::Range(16, largest, ""))
        ->type_name("W");
    command.add_option("--height", options->height, "Height of the picture in pixels [320]")
        ->check(CLI::Range(32, largest, ""))
        ->type_name("H");
    addSoundRange(command, options->range);
    addSoundStream(command, options->stream);
    command.footer("Each channel has a strip of its own, from full scale\n"
                   "down to full scale, above an axis of time.");
}

} // namespace tio::tool
