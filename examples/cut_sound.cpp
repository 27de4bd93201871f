// Cuts samples out of the sound of a clip, to the very sample, and writes them as they are:
//   cut_sound clip.mp4 part.wav 48000 24000
#include <TARN/videoio.h>

#include <algorithm>
#include <iostream>
#include <string>

int main(int argc, char** argv) try {
    if (argc != 5) {
        std::cerr << "usage: cut_sound CLIP PART FIRST COUNT\n";
        return 2;
    }
    tio::ffmpeg::SampleReader sound(argv[1]);
    const int64_t first = std::stoll(argv[3]);
    const int64_t count = std::stoll(argv[4]);

    tio::ffmpeg::ClipWriterOptions options;
    options.audioRate = sound.sampleRate();
    options.audioChannels = sound.channelCount();
    tio::ffmpeg::ClipWriter part(argv[2], options);
    const int64_t block = sound.sampleRate(); // a second at a time, however long the part is
    for (int64_t done = 0; done < count; done += block)
        part.writeSamples(sound.readSamples(first + done, std::min(block, count - done)));
    part.finish();
    std::cout << count << " of " << sound.sampleCount() << " samples, from "
              << sound.timeOfSample(first) << " s on\n";
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
