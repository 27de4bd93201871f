// Copies a clip into another container without decoding it, from a key picture on if asked to:
//   copy_clip clip.mkv copy.mp4 [SECONDS]
#include <TARN/videoio.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) try {
    if (argc < 3) {
        std::cerr << "copy_clip SOURCE COPY [SECONDS]\n";
        return 2;
    }
    tio::ffmpeg::ClipCopierOptions options;
    if (argc > 3) {
        options.from = tio::ffmpeg::ClipCopier::Time(std::atoll(argv[3]));
        options.origin = tio::ffmpeg::ClipOrigin::First; // the copy begins at 0
    }
    const tio::ffmpeg::CopiedClip copied = tio::ffmpeg::ClipCopier(argv[1], argv[2], options).run();
    std::cout << copied.streams.size() << " streams, " << copied.packets << " packets\n";
} catch (const tio::ffmpeg::TimeRefusal& refusal) {
    std::cerr << "it can begin at " << refusal.nearest() << " s\n";
    return 1;
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
