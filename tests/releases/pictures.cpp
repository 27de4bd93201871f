// What FFmpeg releases make of the same files.
//   pictures make FOLDER     makes all test clips
//   pictures hash FILE...    prints a line for each picture of the best video stream: name of the
//                            file, layout, number, time in seconds, size, hash of its bytes
#include "support/ClipTable.h"
#include "support/HashedPicture.h"

#include <TARN/logging/log.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

namespace {

using tio::ffmpeg::PixelFormat;

void printPictures(const std::string& path, PixelFormat format, const std::string& prefix) {
    const auto input = std::make_shared<tio::ffmpeg::InputFormatContext>(path);
    tio::ffmpeg::VideoStreamDecoder video(input, format);
    int number = 0;
    for (auto next = video.readNextFrame(); next.frame; next = video.readNextFrame()) {
        const auto picture = tio::test::hashedPicture(*next.frame);
        std::printf("%s\t%d\t%lld/%lld\t%dx%d\t%016llx\n", prefix.c_str(), number++,
                    static_cast<long long>(next.timestamp.numerator),
                    static_cast<long long>(next.timestamp.denominator), picture.width,
                    picture.height, static_cast<unsigned long long>(picture.hash));
    }
    std::printf("%s\tend\t%d pictures\n", prefix.c_str(), number);
}

void hashFile(const std::filesystem::path& path) {
    for (const auto& [name, format] :
         {std::pair("rgb", PixelFormat::RGB), std::pair("nv12", PixelFormat::NV12)}) {
        const std::string prefix = path.filename().string() + '\t' + name;
        try {
            printPictures(path.string(), format, prefix);
        } catch (const std::exception& failure) {
            std::printf("%s\tend\t%s\n", prefix.c_str(), failure.what());
        }
    }
}

void makeClips(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    for (const auto& clip : tio::test::madeClips())
        clip.make((folder / (clip.name + '.' + clip.extension)).string());
}

} // namespace

int main(int argc, char** argv) try {
    tio::log::setSink([](const std::string&, tio::log::Level, const std::string&) {});
    const std::string command = argc > 2 ? argv[1] : "";
    if (command == "make") {
        makeClips(argv[2]);
    } else if (command == "hash") {
        for (int i = 2; i < argc; ++i)
            hashFile(argv[i]);
    } else {
        std::fputs("usage: pictures make FOLDER | pictures hash FILE...\n", stderr);
        return 2;
    }
} catch (const std::exception& failure) {
    std::fprintf(stderr, "pictures: %s\n", failure.what());
    return 1;
}
