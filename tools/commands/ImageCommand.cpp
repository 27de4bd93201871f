#include "commands/Commands.h"
#include "media/ImageWriter.h"

#include <TARN/videoio/ReadImage.h>

#include <iostream>
#include <memory>

namespace tio::tool {

namespace {

ExitCode runImage(const Program& program, const std::string& output) {
    (void)imageFormatOf(program.input.url);
    const ImageWriter write = imageWriter(imageFormatOf(output));
    const auto image =
        reading(program.input.url, [&] { return tio::readImageUpright(program.input.url); });
    write(viewOf(image), output);
    if (!program.quiet)
        std::cout << oneLine(output) << ": " << image.cols() << " x " << image.rows() << '\n';
    return ExitCode::Success;
}

} // namespace

void addImageCommand(CLI::App& app, Program& program) {
    auto output = std::make_shared<std::string>();
    CLI::App& command = addCommand(app, program, "image", "Convert a still image, upright",
                                   [&program, output] { return runImage(program, *output); },
                                   {"IN", "Image: a file called .jpg, .jpeg, .png or .ppm"});
    command.add_option("OUT", *output, "Image to write, in the format of its name")->required();
    command.footer("A photo whose EXIF data say how the camera was held is turned upright.");
}

} // namespace tio::tool
