// Writes one picture of a video, named by its number, as an image file:
//   seek_frame clip.mp4 1234 picture.png
#include <TARN/videoio.h>

#include <iostream>
#include <string>

int main(int argc, char** argv) try {
    if (argc != 4) {
        std::cerr << "usage: seek_frame VIDEO NUMBER PICTURE\n";
        return 2;
    }
    const auto input = std::make_shared<tio::ffmpeg::InputFormatContext>(argv[1]);
    tio::ffmpeg::VideoStreamDecoder video(input, tio::ffmpeg::PixelFormat::RGB);
    video.seek(std::stoll(argv[2]));
    const auto frame = video.readNextFrame().frame;
    if (!frame)
        throw tio::Exception("The picture cannot be decoded");
    tio::ffmpeg::writeImage(argv[3], frame->toRgb());
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
