// Writes one picture of a video, named by its number, as a PPM file:
//   seek_frame clip.mp4 1234 picture.ppm
#include <TARN/videoio.h>

#include <fstream>
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

    const auto picture = frame->toRgb();
    std::ofstream file(argv[3], std::ios::binary);
    file << "P6\n" << picture.cols() << ' ' << picture.rows() << "\n255\n";
    file.write(picture.storage.get(), std::streamsize{3} * picture.count);
    return file.flush() ? 0 : 1;
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
