// Reads pictures of a video by number, in any order, with an index that is kept beside the video:
//   frames_by_number clip.mp4 clip.index 900 30 31
#include <TARN/videoio.h>

#include <fstream>
#include <iostream>
#include <string>

int main(int argc, char** argv) try {
    if (argc < 4) {
        std::cerr << "usage: frames_by_number VIDEO INDEX NUMBER...\n";
        return 2;
    }
    const auto input = std::make_shared<tio::ffmpeg::InputFormatContext>(argv[1]);
    tio::ffmpeg::FrameReaderOptions options;
    if (std::ifstream(argv[2])) // nothing comes of one that was made of another state of the video
        options.index = tio::ffmpeg::FrameIndex::load(argv[2], input).index;
    const bool indexed = options.index.has_value();

    tio::ffmpeg::FrameReader video(input, tio::ffmpeg::PixelFormat::RGB, options);
    if (!indexed)
        video.index().save(argv[2]);
    std::cout << video.frameCount() << " pictures\n";

    std::vector<int64_t> numbers;
    for (int i = 3; i < argc; ++i)
        numbers.push_back(std::stoll(argv[i]));
    video.readFrames(numbers, [](const tio::ffmpeg::FrameReader::Picture& picture) {
        const auto pixels = picture.frame->toRgb(); // rows of R, G, B bytes, upright
        std::cout << picture.number << " at " << picture.time << " s: " << pixels.cols() << " x "
                  << pixels.rows() << "\n";
        return true; // go on
    });
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
