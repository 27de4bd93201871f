// Reads an image, turned upright, and writes it in the format of the other name:
//   convert_image photo.jpg photo.png
#include <TARN/videoio.h>

#include <iostream>

int main(int argc, char** argv) try {
    if (argc != 3) {
        std::cerr << "usage: convert_image IN OUT\n";
        return 2;
    }
    const auto image = tio::readImageUpright(argv[1]);
    tio::ffmpeg::writeImage(argv[2], image);
    std::cout << image.cols() << " x " << image.rows() << "\n";
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
