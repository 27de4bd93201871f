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

/// "unknown" for what the clip does not tell.
template <typename T>
std::string textOr(const std::optional<T>& value, const std::string& unit) {
    return value ? std::to_string(*value) + unit : "unknown";
}

std::string textOr(const std::string& value) {
    return value.empty() ? "unknown" : value;
}

void printSize(const char* name, std::optional<int> width, std::optional<int> height) {
    if (width && height)
        line(name) << *width << " x " << *height << '\n';
    else
        line(name) << "unknown\n";
}

void printRotation(const ffmpeg::Metadata& stream) {
    line("rotation") << stream.rotation << " degrees clockwise"
                     << (stream.mirrored ? ", then mirrored left to right" : "")
                     << (stream.turnIsExact ? "" : ", the nearest to what is stated") << '\n';
}

void printRate(const ffmpeg::Metadata& stream) {
    if (stream.averageRate)
        line("frame rate") << text(*stream.averageRate) << " = " << std::fixed
                           << std::setprecision(3) << stream.averageRate->toDouble()
                           << " per second" << (stream.rateVaries ? " on average, varies" : "")
                           << '\n';
    else
        line("frame rate") << "unknown\n";
}

void printColours(const ffmpeg::Metadata& stream) {
    line("colours") << "matrix " << textOr(stream.colourSpace) << ", range "
                    << textOr(stream.colourRange) << ", primaries "
                    << textOr(stream.colourPrimaries) << ", transfer "
                    << textOr(stream.colourTransfer) << '\n';
}

void printPictures(const ffmpeg::Metadata& stream) {
    printSize("coded size", stream.codedWidth, stream.codedHeight);
    printSize("upright size", stream.width, stream.height);
    printRotation(stream);
    printRate(stream);
    line("pixel format") << textOr(stream.pixelFormat) << '\n';
    printColours(stream);
    line("pixel aspect") << (stream.sampleAspectRatio ? text(*stream.sampleAspectRatio) : "unknown")
                         << '\n';
}

void printSound(const ffmpeg::Metadata& stream) {
    line("sample rate") << textOr(stream.rate, " per second") << '\n';
    line("channels") << textOr(stream.channels, "") << ", " << textOr(stream.layout) << '\n';
    line("samples") << textOr(stream.sampleFormat) << '\n';
}

void printStream(const StreamFacts& stream) {
    if (stream.duration)
        line("duration") << text(*stream.duration) << " s = " << std::fixed << std::setprecision(6)
                         << stream.duration->toDouble() << " s\n";
    else
        line("duration") << "unknown\n";
    line("time base") << text(stream.metadata.timeBase) << " s\n";
    if (stream.metadata.type == ffmpeg::StreamType::Video)
        printPictures(stream.metadata);
    else if (stream.metadata.type == ffmpeg::StreamType::Audio)
        printSound(stream.metadata);
    else
        return;
    line("bit rate") << textOr(stream.metadata.bitRate, " per second") << '\n';
    if (stream.frames)
        line("frames") << *stream.frames << '\n';
}

void printText(const ClipFacts& clip) {
    std::cout << oneLine(clip.file) << '\n';
    line("container") << clip.container << '\n';
    line("pts-seekable") << (clip.ptsSeekable ? "yes" : "no") << '\n';
    for (size_t index = 0; index < clip.streams.size(); ++index) {
        const StreamFacts& stream = clip.streams[index];
        std::cout << "stream " << index << ": " << nameOf(stream.metadata.type) << ", "
                  << stream.metadata.codec << '\n';
        printStream(stream);
    }
}

nlohmann::ordered_json sizeOf(std::optional<int> width, std::optional<int> height) {
    if (!width || !height)
        return nullptr;
    return {{"width", *width}, {"height", *height}};
}

nlohmann::ordered_json textOrNull(const std::string& text) {
    return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}

nlohmann::ordered_json jsonOf(const std::optional<ffmpeg::Rational>& fraction, const char* value) {
    if (!fraction)
        return nullptr;
    return {{"numerator", fraction->numerator},
            {"denominator", fraction->denominator},
            {value, fraction->toDouble()}};
}

template <typename T>
nlohmann::ordered_json numberOrNull(const std::optional<T>& number) {
    return number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json();
}

void addPictures(const ffmpeg::Metadata& stream, nlohmann::ordered_json& json) {
    json["codedSize"] = sizeOf(stream.codedWidth, stream.codedHeight);
    json["uprightSize"] = sizeOf(stream.width, stream.height);
    json["rotation"] = stream.rotation;
    json["mirrored"] = stream.mirrored;
    json["frameRate"] = jsonOf(stream.averageRate, "perSecond");
    json["frameRateVaries"] = stream.rateVaries;
    json["pixelFormat"] = textOrNull(stream.pixelFormat);
    json["bits"] = numberOrNull(stream.bits);
    json["colourSpace"] = textOrNull(stream.colourSpace);
    json["colourRange"] = textOrNull(stream.colourRange);
    json["colourPrimaries"] = textOrNull(stream.colourPrimaries);
    json["colourTransfer"] = textOrNull(stream.colourTransfer);
    json["sampleAspectRatio"] = jsonOf(stream.sampleAspectRatio, "value");
}

void addSound(const ffmpeg::Metadata& stream, nlohmann::ordered_json& json) {
    json["sampleRate"] = numberOrNull(stream.rate);
    json["channels"] = numberOrNull(stream.channels);
    json["layout"] = textOrNull(stream.layout);
    json["sampleFormat"] = textOrNull(stream.sampleFormat);
}

nlohmann::ordered_json jsonOf(const StreamFacts& stream, size_t index) {
    const ffmpeg::Metadata& metadata = stream.metadata;
    nlohmann::ordered_json json = {
        {"index", index},
        {"type", nameOf(metadata.type)},
        {"codec", metadata.codec},
        {"duration", jsonOf(stream.duration, "seconds")},
        {"timeBase", jsonOf(std::optional(metadata.timeBase), "seconds")},
        {"bitRate", numberOrNull(metadata.bitRate)}};
    if (metadata.type == ffmpeg::StreamType::Video) {
        addPictures(metadata, json);
        json["frameCount"] = numberOrNull(stream.frames);
    } else if (metadata.type == ffmpeg::StreamType::Audio) {
        addSound(metadata, json);
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
