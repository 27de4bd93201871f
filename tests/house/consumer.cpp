// An outside program: opens a file that is not there and has to be told so.
#include <TARN/logging/log.h>
#include <TARN/videoio.h>

#include <iostream>
#include <string>

int main() {
    const std::string name = "no-such-file.mp4";
    tio::log::setSink([](const std::string&, tio::log::Level, const std::string&) {});
    try {
        const tio::ffmpeg::InputFormatContext input(name);
    } catch (const tio::ffmpeg::Exception& error) {
        std::cout << error.what() << "\n";
        return std::string(error.what()).find(name) == std::string::npos ? 1 : 0;
    }
    std::cerr << "opened " << name << "\n";
    return 1;
}
