#include "commands/Commands.h"
#include "media/OutputClip.h"
#include "media/SoundSource.h"
#include "terminal/Progress.h"

#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>

namespace tio::tool {

namespace {

struct SoundOptions {
    std::string output;
    std::string codec;
    std::optional<int> stream;
    SoundRange range;
};

/// @returns the number of samples that were written
int64_t copySound(SoundSource& sound, OutputClip& output, bool quiet) {
    Progress progress("sound", "blocks", std::nullopt, quiet);
    int64_t written = 0;
    for (auto block = sound.next(); block.samples.count != 0; block = sound.next()) {
        output.write([&](ffmpeg::ClipWriter& clip) { clip.writeSamples(block.samples); });
        written += block.samples.rows();
        progress.advance();
    }
    return written;
}

ExitCode runSound(const Program& program, const SoundOptions& options) {
    requireSoundName(options.output);
    SoundSource sound(program.input.url, options.stream);
    sound.keepTo(options.range);
    ffmpeg::ClipWriterOptions writing;
    writing.audioRate = sound.rate();
    writing.audioChannels = sound.channels();
    writing.audioCodec = options.codec;
    OutputClip output(options.output, writing);
    const int64_t written = copySound(sound, output, program.quiet);
    if (written == 0)
        throw Failure(ExitCode::Input, program.input.url, "there is no sound");
    output.finish();
    if (!program.quiet)
        std::cout << oneLine(options.output) << ": " << written << " samples, " << sound.channels()
                  << (sound.channels() == 1 ? " channel, " : " channels, ") << sound.rate()
                  << " per second\n";
    return ExitCode::Success;
}

} // namespace

void addSoundCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<SoundOptions>();
    CLI::App& command =
        addCommand(app, program, "sound", "Write the sound, or a part of it, as a file of its own",
                   [&program, options] { return runSound(program, *options); });
    command.add_option("-o,--output", options->output, "File to write: .wav, .flac, .m4a or .mka")
        ->required()
        ->type_name("FILE");
    addSoundRange(command, options->range);
    addSoundStream(command, options->stream);
    command
        .add_option("--codec", options->codec,
                    "aac, alac, flac, opus, pcm or an encoder of FFmpeg's [what is usual]")
        ->type_name("NAME");
    command.footer("Samples are counted from 0, as they come out when the stream is decoded from\n"
                   "start to end. The part has every sample from --from on and before --to.");
}

} // namespace tio::tool
