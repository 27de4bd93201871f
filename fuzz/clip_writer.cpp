// A ClipWriter with any options, called in any order. Nothing may be thrown but the library's own
// exceptions; what was taken is in the file once finish() has returned, and a copy of it holds as
// many pictures.
//   bytes 0-7  container, codecs, and the other options
//   rest       one byte for every call, with what it needs after it

#include "InputBytes.h"
#include "support/TemporaryFolder.h"
#include "support/WrittenFile.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace tio::ffmpeg;
using tio::fuzz::InputBytes;
using Time = ClipWriter::Time;

template <size_t Count>
const char* oneOf(const std::array<const char*, Count>& names, uint8_t which) {
    return names[which % Count];
}

constexpr std::array<const char*, 8> endings = {"mp4", "mkv", "mov",  "webm",
                                                "m4a", "wav", "flac", "mka"};
constexpr std::array<const char*, 6> codecs = {"mjpeg", "mpeg4", "ffv1", "libx264", "", "none"};
constexpr std::array<const char*, 6> soundCodecs = {"", "aac", "flac", "pcm", "alac", "none"};

/// Small and odd numbers, and those at the ends.
int64_t numberFrom(InputBytes& bytes) {
    const auto kind = bytes.byte();
    if (kind < 200)
        return kind % 50;
    if (kind < 240)
        return bytes.number<int16_t>();
    if (kind < 250)
        return bytes.number<int64_t>();
    return kind % 2 == 0 ? std::numeric_limits<int64_t>::max()
                         : std::numeric_limits<int64_t>::min();
}

Time timeFrom(InputBytes& bytes) {
    const int64_t top = numberFrom(bytes);
    const auto kind = bytes.byte();
    return {top, kind < 200 ? 25 : kind < 230 ? 1000000 : numberFrom(bytes)};
}

ClipWriterOptions optionsFrom(InputBytes& bytes) {
    ClipWriterOptions options;
    const uint8_t flags = bytes.byte();
    if ((flags & 1) != 0)
        options.rate = (flags & 2) != 0 ? Time(25) : Time(30000, 1001);
    if ((flags & 4) != 0)
        options.timeBase = timeFrom(bytes);
    options.fragmented = (flags & 8) != 0;
    options.origin = (flags & 16) != 0 ? ClipOrigin::First : ClipOrigin::AsGiven;
    options.faststart = (flags & 32) != 0;
    options.audioRate = (flags & 64) != 0 ? 48000 : 0;
    options.codec = oneOf(codecs, bytes.byte());
    options.audioCodec = oneOf(soundCodecs, bytes.byte());
    const uint8_t more = bytes.byte();
    options.rotation = 90 * (more & 3);
    options.colours = static_cast<ClipColours>(more >> 2 & 3);
    options.threads = 1;
    if ((more & 16) != 0)
        options.chapters.push_back({timeFrom(bytes), timeFrom(bytes), "one"});
    if ((more & 32) != 0)
        options.language = "deu";
    if ((more & 64) != 0)
        options.crf = numberFrom(bytes);
    if ((more & 128) != 0)
        options.preset = "ultrafast";
    return options;
}

Image pictureFrom(InputBytes& bytes) {
    const uint8_t kind = bytes.byte();
    const int size = kind < 240 ? 32 : kind % 16;
    Image picture(static_cast<PictureFormat>(kind % 11), size, size);
    const ImageView view = picture.view();
    for (int plane = 0; plane < planeCount(view.format); ++plane) {
        const PlaneSize rows = planeSize(view.format, size, size, plane);
        const auto index = static_cast<size_t>(plane);
        // Twice in a sample of 16 bits: 4 is more than 10 bits hold.
        const uint8_t sample = plane == 0 ? kind / 50 : 2;
        for (int row = 0; row < rows.rows; ++row)
            std::fill_n(view.planes[index] + row * view.strides[index], rows.rowBytes, sample);
    }
    return picture;
}

/// What becomes of one clip.
class Clip {
public:
    Clip(const std::string& clipPath, const ClipWriterOptions& options)
        : path(clipPath), writer(path, options) {}

    void call(InputBytes& bytes) {
        try {
            make(bytes);
        } catch (const tio::Exception&) {
        }
    }

    void end() {
        try {
            writer.finish();
        } catch (const tio::Exception&) {
            return;
        }
        if (countIn(path) != pictures)
            std::abort();
        const std::string copy = path + ".copy" + std::filesystem::path(path).extension().string();
        try {
            ClipCopier(path, copy).run();
        } catch (const tio::Exception&) {
            return;
        }
        if (countIn(copy) != pictures)
            std::abort();
    }

private:
    void make(InputBytes& bytes) {
        const uint8_t call = bytes.byte();
        if (call < 100) {
            writer.writePicture(pictureFrom(bytes));
            ++pictures;
        } else if (call < 180) {
            const Image picture = pictureFrom(bytes);
            writer.writePicture(picture, timeFrom(bytes));
            ++pictures;
        } else if (call < 190) {
            const Image picture = pictureFrom(bytes);
            const Time time = timeFrom(bytes);
            writer.writePicture(picture, time, timeFrom(bytes));
            ++pictures;
        } else if (call < 240) {
            const std::vector<float> samples(size_t{2} * 5000);
            writer.writeSamples(samples.data(), bytes.number<uint16_t>() % 5000, 1 + call % 2);
        } else if (call < 250) {
            const std::vector<float> samples(100);
            writer.writeSamples(samples.data(), samples.size(), 1, timeFrom(bytes));
        } else {
            writer.finish();
        }
    }

    static int64_t countIn(const std::string& file) {
        int64_t count = 0;
        const tio::test::FileContents contents = tio::test::readFile(file);
        for (const tio::test::FilePacket& packet : contents.packets)
            count +=
                contents.streams.at(static_cast<size_t>(packet.stream)).type == AVMEDIA_TYPE_VIDEO
                    ? 1
                    : 0;
        return count;
    }

    std::string path;
    ClipWriter writer;
    int64_t pictures = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t count) {
    constexpr int mostCalls = 40;
    const tio::test::TemporaryFolder folder;
    InputBytes bytes(data, count);
    const std::string path = folder.file(std::string("clip.") + oneOf(endings, bytes.byte()));
    try {
        Clip clip(path, optionsFrom(bytes));
        for (int call = 0; call < mostCalls && !bytes.atEnd(); ++call)
            clip.call(bytes);
        clip.end();
    } catch (const tio::Exception&) { // options that are refused
    }
    return 0;
}
