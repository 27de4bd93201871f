// Compares pictures with those of the ffmpeg program:
//   tarn_pictures colours FLAGS CLIP...  the first pictures of clips, as 8-bit RGB, where the
//   program
//                                        is told the matrix and the range, and FLAGS of its scaler;
//                                        with "zimg" they are converted by that library, in a
//                                        filter
//   tarn_pictures turns CLIP             a clip in MP4, in each of the eight ways of turning, with
//                                        the planes of Y, Cb and Cr as they are
// Prints a line of comma-separated values for each.

#include "support/ByteEdits.h"
#include "support/Mp4Edits.h"
#include "support/TemporaryFolder.h"

#include <TARN/logging/log.h>
#include <TARN/videoio.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

namespace tio::bench {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int64_t mostPictures = 10;

std::string quoted(const std::string& word) {
    std::string text = "'";
    for (const char letter : word)
        text += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    return text + "'";
}

/// What the program writes.
Bytes outputOf(const std::string& command) {
    std::FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("no pipe");
    Bytes all;
    Bytes block(1 << 20);
    for (size_t got = 0; (got = std::fread(block.data(), 1, block.size(), pipe)) > 0;)
        all.insert(all.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(got));
    if (::pclose(pipe) != 0)
        throw std::runtime_error("the ffmpeg program failed");
    return all;
}

/// The rows of all planes, without what lies between them.
void append(Bytes& all, const ffmpeg::Image& image) {
    for (int plane = 0; plane < ffmpeg::planeCount(image.format()); ++plane) {
        const auto part = ffmpeg::planeSize(image.format(), image.height(), image.width(), plane);
        for (int row = 0; row < part.rows; ++row) {
            const uint8_t* first = image.data(plane) + row * image.stride(plane);
            all.insert(all.end(), first, first + part.rowBytes);
        }
    }
}

/// The first pictures of a clip, of one size.
Bytes picturesOf(ffmpeg::FrameReader& reader, int64_t count) {
    Bytes all;
    for (int64_t frame = 0; frame < count; ++frame) {
        const ffmpeg::Image image = reader.readFrame(frame).image;
        if (image.width() != reader.width() || image.height() != reader.height())
            throw std::runtime_error("the size changes");
        append(all, image);
    }
    return all;
}

std::string decodingOf(const std::string& path, int stream, int64_t count) {
    return "ffmpeg -nostdin -v quiet -i " + quoted(path) + " -map 0:" + std::to_string(stream) +
           " -vsync passthrough -frames:v " + std::to_string(count);
}

/// How far two readings are apart, in levels.
struct Distance {
    Distance(const Bytes& ours, const Bytes& theirs) : samples(ours.size()) {
        if (ours.size() != theirs.size())
            throw std::runtime_error("the program gives " + std::to_string(theirs.size()) +
                                     " bytes in place of " + std::to_string(ours.size()));
        for (size_t i = 0; i < ours.size(); ++i) {
            const int apart = std::abs(ours[i] - theirs[i]);
            sum += static_cast<uint64_t>(apart);
            far += apart > 3 ? 1u : 0u;
            different += apart > 0 ? 1u : 0u;
            most = std::max(most, apart);
        }
    }

    size_t samples;
    uint64_t sum = 0;
    size_t far = 0;
    size_t different = 0;
    int most = 0;
};

/// The name of a matrix for the scaler; empty where it takes none.
std::string matrixOf(const AVCodecParameters& stream) {
    switch (stream.color_space) {
    case AVCOL_SPC_RGB:
        return "";
    case AVCOL_SPC_BT709:
        return "bt709";
    case AVCOL_SPC_FCC:
        return "fcc";
    case AVCOL_SPC_SMPTE240M:
        return "smpte240m";
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
        return "bt2020";
    default:
        return "bt601";
    }
}

/// How the program is told what the samples mean.
std::string conversion(const std::string& flags, const std::string& matrix, bool full) {
    const std::string range = full ? "pc" : "tv";
    if (flags != "zimg")
        return "scale=flags=" + flags +
               (matrix.empty() ? "" : ":in_color_matrix=" + matrix + ":in_range=" + range);
    const std::map<std::string, std::string> names = {{"", "gbr"},
                                                      {"bt709", "709"},
                                                      {"fcc", "fcc"},
                                                      {"smpte240m", "smpte2400m"},
                                                      {"bt2020", "2020_ncl"},
                                                      {"bt601", "170m"}};
    return "zscale=filter=point:chromalin=center:matrixin=" + names.at(matrix) +
           ":rangein=" + range + ":matrix=gbr:range=pc,format=gbrp";
}

void checkColours(const std::string& flags, const std::string& path) {
    const auto input = std::make_shared<ffmpeg::InputFormatContext>(path);
    ffmpeg::FrameReader reader{ffmpeg::Source(path)};
    const AVCodecParameters& stream = *input->getStream(reader.stream())->codecpar;
    const std::string format = av_get_pix_fmt_name(static_cast<AVPixelFormat>(stream.format));
    const bool full = stream.color_range == AVCOL_RANGE_JPEG || format.compare(0, 4, "yuvj") == 0;
    const std::string matrix = matrixOf(stream);
    const int64_t count = std::min(reader.frameCount(), mostPictures);
    const Distance distance(picturesOf(reader, count),
                            outputOf(decodingOf(path, reader.stream(), count) + " -vf " +
                                     conversion(flags, matrix, full) +
                                     " -pix_fmt rgb24 -f rawvideo -"));
    const auto samples = static_cast<double>(distance.samples);
    std::cout << std::filesystem::path(path).filename().string() << ',' << format << ',' << matrix
              << ',' << (full ? "full" : "limited") << ',' << count << ',' << distance.samples
              << ',' << static_cast<double>(distance.sum) / samples << ','
              << 100 * (1 - static_cast<double>(distance.far) / samples) << ',' << distance.most
              << std::endl;
}

/// What a display matrix says, upper left corner and offsets, for each way from 1 to 8.
constexpr std::array<std::array<int, 4>, 8> corners = {{{1, 0, 0, 1},
                                                        {-1, 0, 0, 1},
                                                        {-1, 0, 0, -1},
                                                        {1, 0, 0, -1},
                                                        {0, 1, 1, 0},
                                                        {0, 1, -1, 0},
                                                        {0, -1, -1, 0},
                                                        {0, -1, 1, 0}}};

void checkTurns(const std::string& path) {
    constexpr int32_t one = 1 << 16;
    const test::TemporaryFolder folder;
    for (size_t way = 0; way < corners.size(); ++way) {
        const std::string turned = folder.file("turned.mp4");
        std::filesystem::copy_file(path, turned, std::filesystem::copy_options::overwrite_existing);
        const auto& [a, b, c, d] = corners[way];
        test::patchTkhdMatrix(turned, {a * one, b * one, 0, c * one, d * one, 0, 0, 0, 1 << 30});
        ffmpeg::FrameReaderOptions options;
        options.format = ffmpeg::PictureFormat::Yuv420;
        ffmpeg::FrameReader reader(ffmpeg::Source(turned), options);
        const int64_t count = std::min(reader.frameCount(), mostPictures);
        const Distance distance(picturesOf(reader, count),
                                outputOf(decodingOf(turned, reader.stream(), count) +
                                         " -pix_fmt yuv420p -f rawvideo -"));
        std::cout << "way " << way + 1 << ',' << reader.width() << " x " << reader.height() << ','
                  << count << ',' << distance.samples << ',' << distance.different << ','
                  << distance.most << std::endl;
    }
}

void attempt(const std::string& path, const std::string& flags) {
    try {
        if (flags.empty())
            checkTurns(path);
        else
            checkColours(flags, path);
    } catch (const std::exception& error) {
        std::cout << std::filesystem::path(path).filename().string()
                  << ",not compared: " << error.what() << std::endl;
    }
}

} // namespace
} // namespace tio::bench

int main(int argc, char** argv) {
    const std::string what = argc > 2 ? argv[1] : "";
    const bool colours = what == "colours" && argc > 3;
    if (!colours && what != "turns") {
        std::cerr << "usage: tarn_pictures colours FLAGS CLIP... | turns CLIP\n";
        return 2;
    }
    tio::log::setSink([](const auto&, auto, const auto&) {});
    std::cerr.rdbuf(nullptr);
    for (int i = colours ? 3 : 2; i < argc; ++i)
        tio::bench::attempt(argv[i], colours ? argv[2] : "");
}
