#include "media/PictureOptions.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <regex>
#include <string>

namespace tio::tool {

namespace {

constexpr int mostPixels = 32768; // in a row or a column

void setSize(PictureOptions& options, const std::string& text) {
    static const std::regex pattern(R"((\d{0,5})x(\d{0,5}))", std::regex::icase);
    std::smatch part;
    if (!std::regex_match(text, part, pattern) || text.size() < 2)
        throw CLI::ValidationError("--size", "write 640x360, or 640x and x360 to keep the shape");
    const auto number = [](const std::string& digits) {
        return digits.empty() ? 0 : std::stoi(digits);
    };
    options.width = number(part[1]);
    options.height = number(part[2]);
    for (const auto& [digits, pixels] :
         {std::pair(part[1].length(), options.width), std::pair(part[2].length(), options.height)})
        if (digits > 0 && (pixels < 1 || pixels > mostPixels))
            throw CLI::ValidationError("--size", "sizes run from 1 to " +
                                                     std::to_string(mostPixels) + " pixels");
}

/// The one side that keeps the shape.
int besides(int side, std::optional<int> own, std::optional<int> other) {
    if (!own || !other || *own < 1)
        return side;
    return std::max(1, static_cast<int>(std::lround(static_cast<double>(side) * *other / *own)));
}

} // namespace

bool PictureOptions::areUsual() const {
    return format == ffmpeg::PictureFormat::Rgb8 && colours == ffmpeg::Colours::Tagged && !stream &&
           width == 0 && height == 0;
}

ffmpeg::FrameReaderOptions PictureOptions::forReader(const ffmpeg::Metadata& ofStream) const {
    ffmpeg::FrameReaderOptions options;
    options.format = format;
    options.colours = colours;
    options.stream = stream;
    options.width =
        width > 0 || height == 0 ? width : besides(height, ofStream.height, ofStream.width);
    options.height =
        height > 0 || width == 0 ? height : besides(width, ofStream.width, ofStream.height);
    return options;
}

void addStreamOptions(CLI::App& command, PictureOptions& options) {
    command
        .add_option("--stream", options.stream,
                    "Stream of the pictures, as info numbers them "
                    "[the best]")
        ->check(CLI::NonNegativeNumber)
        ->type_name("N");
    command
        .add_option("--colours,--colors", options.colours,
                    "What samples are taken for: tagged, or bt601 whatever the tags say [tagged]")
        ->transform(CLI::CheckedTransformer(
                        std::map<std::string, ffmpeg::Colours>{{"tagged", ffmpeg::Colours::Tagged},
                                                               {"bt601", ffmpeg::Colours::Bt601}},
                        CLI::ignore_case)
                        .description(""))
        ->type_name("NAME");
}

void addSizeOption(CLI::App& command, PictureOptions& options) {
    command
        .add_option_function<std::string>(
            "--size", [&options](const std::string& text) { setSize(options, text); },
            "Width and height in pixels; one of them alone keeps the shape [their own]")
        ->type_name("WxH");
}

} // namespace tio::tool
