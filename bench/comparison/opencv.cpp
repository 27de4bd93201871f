// The work of work.h by OpenCV. Its pictures are BGR; NV12 it does not give, nor sound.

#include "work.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

namespace tio::bench {
namespace {

cv::VideoCapture open(const Job& job) {
    cv::VideoCapture video(job.source, cv::CAP_FFMPEG);
    if (!video.isOpened())
        throw std::runtime_error("could not open " + job.source);
    return video;
}

int64_t decode(const Job& job, int64_t most) {
    auto video = open(job);
    cv::Mat picture;
    int64_t count = 0;
    while (count < most && video.read(picture))
        ++count;
    return count;
}

int64_t decodeSmall(const Job& job) {
    auto video = open(job);
    cv::Mat picture;
    cv::Mat small;
    int64_t count = 0;
    for (; video.read(picture); ++count)
        cv::resize(picture, small, cv::Size(smallWidth, smallHeight), 0, 0, cv::INTER_AREA);
    return count;
}

int64_t batch(const Job& job) {
    auto video = open(job);
    const auto frames = framesOfBatch(static_cast<int64_t>(video.get(cv::CAP_PROP_FRAME_COUNT)));
    const auto height = static_cast<int>(video.get(cv::CAP_PROP_FRAME_HEIGHT));
    const auto width = static_cast<int>(video.get(cv::CAP_PROP_FRAME_WIDTH));
    const auto bytes =
        static_cast<size_t>(3) * static_cast<size_t>(width) * static_cast<size_t>(height);
    std::vector<uint8_t> memory(frames.size() * bytes);
    auto wanted = frames.begin();
    for (int64_t number = 0; wanted != frames.end() && video.grab(); ++number)
        for (; wanted != frames.end() && *wanted == number; ++wanted) {
            const auto place = static_cast<size_t>(wanted - frames.begin());
            cv::Mat picture(height, width, CV_8UC3, memory.data() + place * bytes);
            video.retrieve(picture);
        }
    return wanted - frames.begin();
}

int64_t seek(const Job& job) {
    auto video = open(job);
    cv::Mat picture;
    int64_t count = 0;
    const auto frames = static_cast<int64_t>(video.get(cv::CAP_PROP_FRAME_COUNT));
    for (const int64_t frame : framesToSeek(frames)) {
        video.set(cv::CAP_PROP_POS_FRAMES, static_cast<double>(frame));
        count += video.read(picture) ? 1 : 0;
    }
    return count;
}

// With the encoder's settings from the environment: OPENCV_FFMPEG_WRITER_OPTIONS.
int64_t encodePictures(const Job& job) {
    const Bytes raw(job.source);
    cv::VideoWriter writer(job.target, cv::CAP_FFMPEG, cv::VideoWriter::fourcc('a', 'v', 'c', '1'),
                           25, cv::Size(rawWidth, rawHeight));
    if (!writer.isOpened())
        throw std::runtime_error("could not open " + job.target);
    const int pictures = rawPicturesIn(raw);
    for (int n = 0; n < rawRounds * pictures; ++n) {
        const uint8_t* pixels = raw.data() + rawPictureBytes * static_cast<size_t>(n % pictures);
        writer.write(cv::Mat(rawHeight, rawWidth, CV_8UC3, const_cast<uint8_t*>(pixels)));
    }
    return rawRounds * pictures;
}

int64_t readImages(const Job& job) {
    int64_t pixels = 0;
    for (int i = 0; i < imageRepeats; ++i) {
        const cv::Mat image = cv::imread(job.source, cv::IMREAD_COLOR);
        pixels += int64_t{image.rows} * image.cols;
    }
    return pixels;
}

int64_t writeImages(const Job& job) {
    const Bytes raw(job.source);
    const cv::Mat image(rawHeight, rawWidth, CV_8UC3, raw.data());
    for (int i = 0; i < imageRepeats; ++i)
        cv::imwrite(job.target, image);
    return imageRepeats;
}

} // namespace
} // namespace tio::bench

int main(int argc, char** argv) {
    using namespace tio::bench;
    return runTask(argc, argv,
                   {{"first-frame", [](const Job& job) { return decode(job, 1); }},
                    {"decode-rgb", [](const Job& job) { return decode(job, INT64_MAX); }},
                    {"tagged-rgb", [](const Job& job) { return decode(job, INT64_MAX); }},
                    {"small-rgb", decodeSmall},
                    {"batch", batch},
                    {"seek", seek},
                    {"encode-pictures", encodePictures},
                    {"read-image", readImages},
                    {"write-image", writeImages}});
}
