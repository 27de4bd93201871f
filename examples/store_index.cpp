// Stores the frame index of a video, then opens the video once more with it: to number the frames a
// whole video is read through, and this way only once.
//   store_index clip.mp4 clip.index
#include <TARN/videoio.h>

#include <iostream>

namespace {

tio::ffmpeg::VideoStreamDecoder openVideo(const char* url) {
    return {std::make_shared<tio::ffmpeg::InputFormatContext>(url), tio::ffmpeg::PixelFormat::RGB};
}

} // namespace

int main(int argc, char** argv) try {
    if (argc != 3) {
        std::cerr << "usage: store_index VIDEO INDEX\n";
        return 2;
    }
    openVideo(argv[1]).storeSeekingIndex(argv[2]); // reads the whole video

    auto video = openVideo(argv[1]);
    video.loadSeekingIndex(argv[2]); // reads the index alone
    video.seek(video.getFrameCount() - 1);
    std::cout << "the last of " << video.getFrameCount() << " pictures is shown at "
              << video.readNextFrame().timestamp << " s\n";
} catch (const tio::Exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
