#include "commands/Commands.h"
#include "media/ClipFrames.h"
#include "media/ContactSheet.h"
#include "media/ImageWriter.h"
#include "terminal/Clock.h"
#include "terminal/Progress.h"

#include <algorithm>
#include <iostream>
#include <memory>

namespace tio::tool {

namespace {

constexpr int widest = 16384;
constexpr int mostCells = 1000; // in a row or a column

struct SheetOptions {
    std::string output;
    int columns = 5;
    int rows = 4;
    int width = 1600;
    PictureOptions pictures;
};

// The frames in the middle of as many equal parts of the clip.
int64_t frameOfCell(int64_t cell, int64_t cells, int64_t frames) {
    return (2 * cell + 1) * frames / (2 * cells);
}

std::string labelOf(int64_t number, const ClipFrames::Picture& picture) {
    return '#' + std::to_string(number) + "  " +
           clockText(picture.time.toDouble(), ClockPrecision::Milliseconds);
}

ContactSheet makeSheet(const Program& program, const SheetOptions& options) {
    requireReadAgain(program.input.url);
    ClipFrames clip(program.input, options.pictures, [&](const std::string& text) {
        if (!program.quiet)
            printError(text);
    });
    const int64_t frames = clip.byNumber().frameCount();
    const int64_t cells = std::min<int64_t>(frames, int64_t{options.columns} * options.rows);
    ContactSheet sheet({options.columns, options.width, cells});
    Progress progress("sheet", "frames", cells, program.quiet);
    for (int64_t cell = 0; cell < cells; ++cell) {
        const int64_t number = frameOfCell(cell, cells, frames);
        const auto picture = clip.read(number);
        if (picture.image.empty())
            break; // a clip that breaks off has fewer pictures than its index promises
        writing(options.output, [&] { sheet.add(picture.image, labelOf(number, picture)); });
        progress.advance();
    }
    if (sheet.count() == 0)
        throw Failure(ExitCode::Input, program.input.url, "no picture can be read");
    return sheet;
}

ExitCode runSheet(const Program& program, const SheetOptions& options) {
    const ImageWriter write = imageWriter(imageFormatOf(options.output));
    constexpr int narrowestCell = 16;
    if (ContactSheet::cellWidth({options.columns, options.width, 0}) < narrowestCell)
        throw Failure(ExitCode::Usage, options.output, "--width leaves no room for the columns");
    const ContactSheet sheet = makeSheet(program, options);
    write(viewOf(sheet.image()), options.output);
    if (!program.quiet)
        std::cout << oneLine(options.output) << ": " << sheet.count() << " frames\n";
    return ExitCode::Success;
}

} // namespace

void addSheetCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<SheetOptions>();
    CLI::App& command =
        addCommand(app, program, "sheet", "Draw a contact sheet: frames from all over the clip",
                   [&program, options] { return runSheet(program, *options); });
    command
        .add_option("-o,--output", options->output, "Picture to write, in the format of its name")
        ->required()
        ->type_name("FILE");
    command.add_option("--columns", options->columns, "Frames beside each other [5]")
        ->check(CLI::Range(1, mostCells, ""))
        ->type_name("C");
    command.add_option("--rows", options->rows, "Frames below each other, at most [4]")
        ->check(CLI::Range(1, mostCells, ""))
        ->type_name("R");
    command.add_option("--width", options->width, "Width of the sheet in pixels [1600]")
        ->check(CLI::Range(1, widest, ""))
        ->type_name("W");
    addStreamOptions(command, options->pictures);
    addIndexOption(command, program, "Take the frame index from a stored file");
    command.footer(
        "The frames are those in the middle of as many equal parts of the clip. Each has\n"
        "its number and its time drawn on it. A clip of fewer frames shows all of them.");
}

} // namespace tio::tool
