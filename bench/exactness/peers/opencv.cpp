// Frames by number through OpenCV, compared with OpenCV's own reading from start to end, because
// its pictures are converted:
//   opencv NAME CLIP TRUTH SECONDS

#include "compare.h"
#include "picture/planes.h"

#include <opencv2/videoio.hpp>
#include <stdexcept>

namespace {

uint32_t crcOf(const cv::Mat& picture) {
    const uint8_t* planes[4] = {picture.data};
    const int strides[4] = {static_cast<int>(picture.step[0])};
    return crcOfPlanes(planes, strides, AV_PIX_FMT_BGR24, picture.cols, picture.rows);
}

cv::VideoCapture open(const char* path) {
    return cv::VideoCapture(path, cv::CAP_FFMPEG);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5)
        return 2;
    const size_t count = tio::bench::readTruth(argv[3]).size();
    std::vector<uint32_t> truth;
    cv::Mat picture;
    cv::VideoCapture linear = open(argv[2]);
    if (!linear.isOpened()) {
        std::printf("%s,opencv,none,0,0,0,0,0,0,0,0,refused,0,\n", argv[1]);
        return 0;
    }
    while (linear.read(picture))
        truth.push_back(crcOf(picture));
    const auto read = static_cast<int64_t>(truth.size());
    truth.resize(count, 0); // frames that it never gives are wrong, or fail
    cv::VideoCapture video = open(argv[2]);
    tio::bench::comparePeer(argv[1], "opencv", read, truth, std::atof(argv[4]),
                            [&](int64_t number) {
                                video.set(cv::CAP_PROP_POS_FRAMES, static_cast<double>(number));
                                if (!video.read(picture))
                                    throw std::runtime_error("no picture");
                                return crcOf(picture);
                            });
}
