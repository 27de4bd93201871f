// Writes two seconds of moving stripes and a tone, with every picture and sample in its place:
//   write_clip_with_sound clip.mp4
#include <TARN/videoio.h>

#include <cmath>
#include <iostream>
#include <vector>

int main(int argc, char** argv) try {
    constexpr int pictures = 50;
    constexpr int samples = 48000 / 25; // for each picture
    tio::ffmpeg::ClipWriterOptions options;
    options.rate = 25;
    options.audioRate = 48000;
    options.metadata["title"] = "Stripes";
    tio::ffmpeg::ClipWriter clip(argc > 1 ? argv[1] : "clip.mp4", options);
    for (int n = 0; n < pictures; ++n) {
        tio::ffmpeg::Image picture(tio::ffmpeg::PictureFormat::Rgb8, 240, 320);
        for (int row = 0; row < 240; ++row) {
            uint8_t* pixel = picture.data() + row * picture.stride();
            for (int column = 0; column < 320; ++column, pixel += 3)
                pixel[0] = static_cast<uint8_t>(4 * n + column); // red
        }
        clip.writePicture(picture);
        std::vector<float> tone(samples);
        for (int i = 0; i < samples; ++i)
            tone[i] = 0.2F * std::sin(0.0576F * static_cast<float>(n * samples + i));
        clip.writeSamples(tone.data(), tone.size(), 1);
    }
    clip.finish(); // completes the file, or throws
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
