// Prints the time of every picture that a camera sends, until it falls silent for two seconds:
//   watch_camera rtsp://camera/stream
#include <TARN/videoio.h>

#include <chrono>
#include <iostream>

int main(int argc, char** argv) try {
    using Reason = tio::ffmpeg::EndReason::Kind;
    tio::ffmpeg::OpenOptions options;
    options.openTimeout = std::chrono::seconds(5);
    options.readTimeout = std::chrono::seconds(2);
    const auto input = std::make_shared<tio::ffmpeg::InputFormatContext>(
        argc > 1 ? argv[1] : "rtsp://127.0.0.1/", options);
    tio::ffmpeg::VideoStreamDecoder video(input, tio::ffmpeg::PixelFormat::RGB);
    for (auto next = video.readNextFrame(); next.frame; next = video.readNextFrame())
        std::cout << next.timestamp << " s\n";

    const auto reason = input->getEndReason();
    std::cout << (reason.kind == Reason::Timeout ? "silent for two seconds"
                  : reason.kind == Reason::Error ? reason.text
                                                 : "the stream has ended")
              << "\n";
} catch (const tio::Exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
