#include <TARN/videoio/VideoStreamEncoder.h>

#include <map>
#include <string>
#include <utility>

namespace tio::ffmpeg {

VideoStreamEncoder::VideoStreamEncoder(std::shared_ptr<OutputFormatContext> context,
                                       tio::Vec<int, 2> size, Rational timeBase)
    : StreamEncoder(std::move(context), timeBase,
                    std::make_shared<VideoPacketEncoder>(size, timeBase,
                                                         std::map<std::string, std::string>{})) {}

VideoStreamEncoder::~VideoStreamEncoder() = default;

void VideoStreamEncoder::writeNextFrame(VideoPacketEncoder::Image image, Rational time) {
    requireShortPause(time);
    writePackets(encoderAs<VideoPacketEncoder>().writeNextFrame(std::move(image), time), time);
}

// Unlike the packet encoder, which counts ticks, this gives every image the same time. The header
// says so.
void VideoStreamEncoder::writeNextFrame(VideoPacketEncoder::Image image) {
    writeNextFrame(std::move(image), timeWithoutTime());
}

} // namespace tio::ffmpeg
