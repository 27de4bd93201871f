// What peers.py does of pictures, in C++, to see what Python adds:
//   tarn_walks TASK CLIP [NUMBER]...
// Prints the CPU seconds from before opening to the last picture, and how many there were.

#include <TARN/videoio.h>

#include <cstdio>
#include <ctime>
#include <exception>
#include <string>
#include <vector>

namespace {

using namespace tio::ffmpeg;

double cpuSeconds() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

FrameReader open(const std::string& clip) {
    FrameReaderOptions options;
    options.threads = 1;
    return FrameReader(Source(clip), options);
}

int64_t oneByOne(FrameReader& reader, const std::vector<int64_t>& frames) {
    int64_t count = 0;
    for (const int64_t frame : frames)
        count += reader.readFrame(frame).image.byteCount() > 0 ? 1 : 0;
    return count;
}

int64_t inOrder(FrameReader& reader) {
    std::vector<int64_t> frames;
    for (int64_t frame = 0; frame < reader.frameCount(); ++frame)
        frames.push_back(frame);
    return oneByOne(reader, frames);
}

/// Into one block, as Python has its batches.
int64_t batch(FrameReader& reader, const std::vector<int64_t>& frames) {
    const std::size_t row = std::size_t{3} * static_cast<std::size_t>(reader.width());
    const std::size_t bytes = row * static_cast<std::size_t>(reader.height());
    std::vector<uint8_t> block(bytes * frames.size());
    ImageView view;
    view.format = PictureFormat::Rgb8;
    view.height = reader.height();
    view.width = reader.width();
    view.strides[0] = static_cast<std::ptrdiff_t>(row);
    int64_t count = 0;
    reader.readFramesInto(
        frames,
        [&](std::size_t place) {
            view.planes[0] = block.data() + place * bytes;
            return view;
        },
        [&](std::size_t, const FrameReader::Picture&) {
            ++count;
            return true;
        });
    return count;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3)
        return 2;
    try {
        std::vector<int64_t> frames;
        for (int argument = 3; argument < argc; ++argument)
            frames.push_back(std::stoll(argv[argument]));
        const std::string task = argv[1];
        const double begin = cpuSeconds();
        FrameReader reader = open(argv[2]);
        const int64_t count = task == "order"   ? inOrder(reader)
                              : task == "batch" ? batch(reader, frames)
                                                : oneByOne(reader, frames);
        std::printf("%.6f %lld\n", cpuSeconds() - begin, static_cast<long long>(count));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
