#include "commands/Commands.h"
#include "media/ClipFacts.h"

#include <iomanip>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

namespace tio::tool {

namespace {

struct InfoOptions {
    bool json = false;
    bool count = false;
};

const char* nameOf(ffmpeg::StreamType type) {
    switch (type) {
    case ffmpeg::StreamType::Video:
        return "video";
    case ffmpeg::StreamType::Audio:
        return "audio";
    case ffmpeg::StreamType::Subtitle:
        return "subtitle";
    case ffmpeg::StreamType::Data:
        return "data";
    case ffmpeg::StreamType::Attachment:
        return "attachment";
    case ffmpeg::StreamType::Unknown:
        break;
    }
    return "unknown";
}

std::ostream& line(const char* name) {
    return std::cout << "  " << std::left << std::setw(14) << name;
}

void printSize(const char* name, const std::optional<Size>& size) {
    if (size)
        line(name) << size->width << " x " << size->height << '\n';
    else
        line(name) << "unknown\n";
}

void printStream(const StreamFacts& stream) {
    if (stream.duration)
        line("duration") << text(*stream.duration) << " s = " << std::fixed << std::setprecision(6)
                         << stream.duration->toDouble() << " s\n";
    else
        line("duration") << "unknown\n";
    line("time base") << text(stream.timeBase) << " s\n";
    if (stream.type != ffmpeg::StreamType::Video)
        return;
    printSize("coded size", stream.codedSize);
    printSize("upright size", stream.uprightSize);
    line("rotation") << stream.rotation << " degrees clockwise\n";
    if (stream.frames)
        line("frames") << *stream.frames << '\n';
}

void printText(const ClipFacts& clip) {
    std::cout << oneLine(clip.file) << '\n';
    line("container") << clip.container << '\n';
    line("pts-seekable") << (clip.ptsSeekable ? "yes" : "no") << '\n';
    for (size_t index = 0; index < clip.streams.size(); ++index) {
        const StreamFacts& stream = clip.streams[index];
        std::cout << "stream " << index << ": " << nameOf(stream.type) << ", " << stream.codec
                  << '\n';
        printStream(stream);
    }
}

nlohmann::ordered_json jsonOf(const std::optional<Size>& size) {
    if (!size)
        return nullptr;
    return {{"width", size->width}, {"height", size->height}};
}

nlohmann::ordered_json jsonOf(const std::optional<ffmpeg::Rational>& time) {
    if (!time)
        return nullptr;
    return {{"numerator", time->numerator},
            {"denominator", time->denominator},
            {"seconds", time->toDouble()}};
}

template <typename T>
nlohmann::ordered_json numberOrNull(const std::optional<T>& number) {
    return number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json();
}

nlohmann::ordered_json jsonOf(const StreamFacts& stream, size_t index) {
    nlohmann::ordered_json json = {{"index", index},
                                   {"type", nameOf(stream.type)},
                                   {"codec", stream.codec},
                                   {"duration", jsonOf(stream.duration)},
                                   {"timeBase", jsonOf(std::optional(stream.timeBase))}};
    if (stream.type == ffmpeg::StreamType::Video) {
        json["codedSize"] = jsonOf(stream.codedSize);
        json["uprightSize"] = jsonOf(stream.uprightSize);
        json["rotation"] = stream.rotation;
        json["frameCount"] = numberOrNull(stream.frames);
    }
    return json;
}

void printJson(const ClipFacts& clip) {
    nlohmann::ordered_json streams = nlohmann::ordered_json::array();
    for (size_t index = 0; index < clip.streams.size(); ++index)
        streams.push_back(jsonOf(clip.streams[index], index));
    const nlohmann::ordered_json json = {{"file", clip.file},
                                         {"container", clip.container},
                                         {"ptsSeekable", clip.ptsSeekable},
                                         {"bestVideoStream", numberOrNull(clip.bestVideo)},
                                         {"bestAudioStream", numberOrNull(clip.bestAudio)},
                                         {"streams", streams}};
    // A file name need not be valid UTF-8, which JSON has to be.
    std::cout << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

ExitCode runInfo(const Program& program, const InfoOptions& options) {
    const ClipFacts facts = gatherFacts(program.input, options.count);
    if (options.json)
        printJson(facts);
    else
        printText(facts);
    return ExitCode::Success;
}

} // namespace

void addInfoCommand(CLI::App& app, Program& program) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App& command = addCommand(app, program, "info", "Print what a clip holds",
                                   [&program, options] { return runInfo(program, *options); });
    command.add_flag("--json", options->json, "Print JSON; docs/command-line.md lists the keys");
    command.add_flag("--count", options->count,
                     "Count the frames of the best video stream, which reads all of it");
    addIndexOption(command, program, "Take the frame count from a stored index");
}

} // namespace tio::tool
