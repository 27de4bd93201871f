// Writes a second of moving stripes as an MP4 file:
//   write_clip clip.mp4
#include <TARN/videoio.h>

#include <iostream>

int main(int argc, char** argv) try {
    const tio::Vec<int, 2> size(240, 320); // height, width
    const auto output =
        std::make_shared<tio::ffmpeg::OutputFormatContext>(argc > 1 ? argv[1] : "clip.mp4");
    auto video = std::make_unique<tio::ffmpeg::VideoStreamEncoder>(output, size,
                                                                   tio::ffmpeg::Rational(1, 25));
    for (int n = 0; n < 25; ++n) {
        tio::ffmpeg::VideoPacketEncoder::Image picture(size);
        for (int i = 0; i < picture.count; ++i)
            picture.data()[i] = {static_cast<uint8_t>(10 * n + i % 320), 128, 64}; // R, G, B
        video->writeNextFrame(picture, {n, 25});
    }
    video.reset();    // writes what the encoder still holds
    output->finish(); // completes the file, or throws
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
