// Options as a caller hands them over: any keys and values for opening a small valid clip and for
// the H.264 encoder. Each is taken, ignored or refused.
//   byte 0  bit 0: the encoder; otherwise opening. Bits 1 and 2: which clip
//   then    for the encoder four numbers of size and time base, for opening a line with the name of
//           the demuxer and eight bytes of the probe size
//   rest    lines of the form key=value
//
// Some options name files, or lead to files and servers that options in turn name. Those that would
// write are left out, opening is held to plain files, and both work in a folder of their own.

#include "InputBytes.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using namespace tio::ffmpeg;
using tio::fuzz::InputBytes;
using Options = std::map<std::string, std::string>;

/// The clips, in the folder that everything happens in.
struct Clips {
    Clips() {
        std::filesystem::current_path(folder.path());
        tio::test::ClipPlan plan;
        plan.width = 32;
        plan.height = 32;
        plan.frameCount = 5;
        plan.audio = true;
        make(plan, "mp4");
        make(plan, "matroska");
        make(plan, "mpegts");
        plan.encoder = "mpeg4";
        make(plan, "avi");
    }

    void make(tio::test::ClipPlan& plan, const std::string& format) {
        plan.format = format;
        paths.at(made) = folder.file("clip." + format);
        tio::test::makeClip(paths.at(made++), plan);
    }

    tio::test::TemporaryFolder folder;
    std::array<std::string, 4> paths;
    size_t made = 0;
};

const Clips& clips() {
    static const Clips made;
    return made;
}

Options takeOptions(InputBytes& input) {
    constexpr size_t mostOptions = 16;
    Options options;
    while (!input.atEnd() && options.size() < mostOptions) {
        const std::string line = input.line();
        const size_t sign = std::min(line.find('='), line.size());
        options[line.substr(0, sign)] = line.substr(std::min(sign + 1, line.size()));
    }
    return options;
}

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

// FFmpeg takes the names of the encoder's own options in any way that it takes them from a command
// line; x264's own text can name files to write, and a first pass writes one by itself. Any number
// of threads may be asked for, which tests the system's patience and not the library.
bool isLeftOut(const std::string& key, const std::string& value) {
    return contains(key, "x264") || contains(key, "stats") || contains(key, "logfile") ||
           contains(key, "threads") || (contains(key, "flags") && contains(value, "pass"));
}

Options withoutWriters(const Options& given) {
    Options options;
    for (const auto& [key, value] : given)
        if (!isLeftOut(key, value))
            options[key] = value;
    return options;
}

void read(InputFormatContext& opened, const std::shared_ptr<InputFormatContext>& shared) {
    (void)opened.getContainerName();
    VideoStreamDecoder decoder(shared, PixelFormat::RGB);
    for (int i = 0; i < 3 && decoder.readNextFrame().frame; ++i) {
    }
    decoder.seek(decoder.getFrameCount() / 2);
    (void)decoder.readNextFrame();
}

void openClip(const std::string& path, InputBytes& input) {
    OpenOptions options;
    options.openTimeout = std::chrono::milliseconds(300);
    options.readTimeout = std::chrono::milliseconds(300);
    options.formatName = input.line();
    options.probeSize = input.number<int64_t>();
    options.demuxerOptions = takeOptions(input);
    options.demuxerOptions["protocol_whitelist"] = "file";
    options.demuxerOptions.erase("loop"); // a source without an end has no number of frames
    const auto opened = std::make_shared<InputFormatContext>(path, options);
    read(*opened, opened);
}

void encode(InputBytes& input) {
    const tio::Vec<int, 2> size(input.byte() % 65, input.byte() % 65);
    const Rational timeBase(input.number<int16_t>(), input.number<int16_t>());
    VideoPacketEncoder encoder(size, timeBase, withoutWriters(takeOptions(input)));
    VideoPacketEncoder::Image image(size);
    std::fill_n(image.data(), image.count, tio::Vec<uint8_t, 3>(10, 200, 30));
    for (int i = 0; i < 3; ++i)
        (void)encoder.writeNextFrame(image);
    (void)encoder.flush();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    InputBytes input(bytes, count);
    const uint8_t choice = input.byte();
    const std::string& path = clips().paths[choice >> 1 & 3];
    try {
        if ((choice & 1) != 0)
            encode(input);
        else
            openClip(path, input);
    } catch (const tio::Exception&) {
    } catch (const std::logic_error&) { // a bit rate that is no number
    }
    return 0;
}
