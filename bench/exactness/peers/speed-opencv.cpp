// The walks of speed.h through OpenCV: speed-opencv CLIP

#include "../speed.h"

#include <opencv2/videoio.hpp>

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    cv::Mat picture;
    cv::VideoCapture video(argv[1], cv::CAP_FFMPEG);
    const auto count = static_cast<int64_t>(video.get(cv::CAP_PROP_FRAME_COUNT));
    const auto bySeeking = [&](const std::vector<int64_t>& frames) {
        for (const int64_t frame : frames) {
            video.set(cv::CAP_PROP_POS_FRAMES, static_cast<double>(frame));
            video.read(picture);
        }
    };
    tio::bench::measure("opencv", "random", [&] { bySeeking(tio::bench::randomFrames(count)); });
    tio::bench::measure("opencv", "every10-set", [&] { bySeeking(tio::bench::everyTenth(count)); });
    cv::VideoCapture forward(argv[1], cv::CAP_FFMPEG);
    tio::bench::measure("opencv", "every10", [&] {
        int64_t next = 0;
        for (const int64_t frame : tio::bench::everyTenth(count)) {
            for (; next < frame; ++next)
                forward.grab();
            forward.read(picture);
            ++next;
        }
    });
}
