#include "commands/Commands.h"

#include <TARN/videoio/H264Helpers.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <vector>

namespace tio::tool {

namespace {

using Bytes = std::vector<unsigned char>;

struct Unit {
    size_t codeLength;
    size_t size;
    int type;
};

const char* nameOf(int type) {
    constexpr std::array<const char*, 22> names = {"unspecified",
                                                   "slice",
                                                   "slice data partition A",
                                                   "slice data partition B",
                                                   "slice data partition C",
                                                   "slice of an IDR picture",
                                                   "supplemental information",
                                                   "sequence parameter set",
                                                   "picture parameter set",
                                                   "access unit delimiter",
                                                   "end of sequence",
                                                   "end of stream",
                                                   "filler data",
                                                   "sequence parameter set extension",
                                                   "prefix",
                                                   "subset sequence parameter set",
                                                   "depth parameter set",
                                                   "reserved",
                                                   "reserved",
                                                   "slice of an auxiliary picture",
                                                   "slice extension",
                                                   "slice extension for depth"};
    if (type < static_cast<int>(names.size()))
        return names[static_cast<size_t>(type)];
    return type < 24 ? "reserved" : "unspecified";
}

Bytes contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    Bytes bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file)
        throw Failure(ExitCode::Input, path, "cannot be read");
    return bytes;
}

/// The parameter sets of a codec's extradata, as a stream.
Bytes parameterSets(const Bytes& extradata) {
    unsigned char* sps = nullptr;
    unsigned char* pps = nullptr;
    size_t spsSize = 0;
    size_t ppsSize = 0;
    tio::videolib::extradata_to_spspps(extradata.data(), static_cast<int>(extradata.size()), &sps,
                                       &spsSize, &pps, &ppsSize);
    const std::unique_ptr<unsigned char, decltype(&std::free)> spsOwner(sps, std::free);
    const std::unique_ptr<unsigned char, decltype(&std::free)> ppsOwner(pps, std::free);
    Bytes stream(sps, sps + spsSize);
    stream.insert(stream.end(), pps, pps + ppsSize);
    return stream;
}

/// The whole of a raw stream, or the parameter sets of a container's best video stream.
Bytes streamOf(const std::string& path) {
    const auto input = openInput(path);
    if (input->getContainerName() == "h264")
        return contentOf(path);
    const int best = reading(path, [&] { return input->findBestVideoStreamIndex(); });
    if (input->getCodecOfStream(best) != ffmpeg::Codec::H264)
        throw Failure(ExitCode::Input, path, "the video is not H.264");
    return parameterSets(input->getExtradataOfStream(best));
}

std::vector<Unit> unitsOf(const Bytes& stream) {
    std::vector<Unit> units;
    tio::videolib::helper::extract_all_nals(
        stream.data(), stream.size(), [&](size_t codeLength, Bytes& unit) {
            constexpr int typeBits = 0x1F;
            units.push_back({codeLength, unit.size(), unit.empty() ? 0 : unit.front() & typeBits});
        });
    return units;
}

void printUnits(const std::vector<Unit>& units, size_t streamSize) {
    size_t offset = streamSize; // units fill the stream to its end
    for (const Unit& unit : units)
        offset -= unit.codeLength + unit.size;
    std::cout << "    offset  code  type                                  bytes\n";
    for (const Unit& unit : units) {
        std::array<char, 128> line{};
        std::snprintf(line.data(), line.size(), "%10zu  %4zu  %2d %-32s  %9zu\n", offset,
                      unit.codeLength, unit.type, nameOf(unit.type), unit.size);
        std::cout << line.data();
        offset += unit.codeLength + unit.size;
    }
}

ExitCode runNals(const Program& program) {
    const Bytes stream = streamOf(program.input.url);
    const auto units = unitsOf(stream);
    if (units.empty())
        throw Failure(ExitCode::Input, program.input.url, "there are no NAL units");
    printUnits(units, stream.size());
    return ExitCode::Success;
}

} // namespace

void addNalsCommand(CLI::App& app, Program& program) {
    CLI::App& command =
        addCommand(app, program, "nals", "List the NAL units of an H.264 stream",
                   [&program] { return runNals(program); },
                   {"FILE", "Raw H.264 stream, or a clip whose parameter sets are listed"});
    command.footer(
        "Offsets are those of start codes, sizes those of units without them. The parameter\n"
        "sets of a clip are counted from the first of them, with start codes of their own.");
}

} // namespace tio::tool
