// Reads every picture of a video and prints its time and size.
#include <TARN/videoio.h>

#include <iostream>

int main(int argc, char** argv) try {
    const auto input = std::make_shared<tio::ffmpeg::InputFormatContext>(argc > 1 ? argv[1] : "");
    tio::ffmpeg::VideoStreamDecoder video(input, tio::ffmpeg::PixelFormat::RGB);
    for (auto next = video.readNextFrame(); next.frame; next = video.readNextFrame()) {
        const auto picture = next.frame->toRgb(); // rows of R, G, B bytes, upright
        std::cout << next.timestamp << " s: " << picture.cols() << " x " << picture.rows() << "\n";
    }
} catch (const tio::Exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
