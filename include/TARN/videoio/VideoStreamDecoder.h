#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/StreamDecoder.h>
#include <TARN/videoio/Types.h>
#include <TARN/videoio/VideoPacketDecoder.h>

#include <memory>

namespace tio::ffmpeg {

/// Reads the best video stream of an input: upright pictures, one per call.
///
/// Pictures of the MP4 family are turned in one of four ways; one that is to be mirrored as well
/// comes out as its nearest turn. What other containers say of turning is ignored. FrameReader
/// shows all eight ways of every container.
///
/// @code
/// auto input = std::make_shared<tio::ffmpeg::InputFormatContext>("clip.mp4");
/// tio::ffmpeg::VideoStreamDecoder video(input, tio::ffmpeg::PixelFormat::RGB);
/// video.seek(100);
/// while (auto picture = video.readNextFrame().frame) { … }
/// @endcode
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API VideoStreamDecoder : public StreamDecoder {
public:
    /// Reads nothing yet.
    /// @throws tio::Exception for a null context
    /// @throws tio::ffmpeg::Exception "… Could not find stream of requested type"
    VideoStreamDecoder(std::shared_ptr<InputFormatContext> context, PixelFormat format);
    ~VideoStreamDecoder() override;

    /// Size of the upright pictures, (height, width) in pixels: in this order, unlike
    /// InputFormatContext::getResolutionOfStream(). (FrameReader::height() and width() name them.)
    /// Reads the first packet when none was read yet.
    /// @throws tio::Exception when the stream has no packet that shows it
    tio::Vec<int, 2> getFrameSize() const;

    /// The next picture in order of presentation; a Frame without a picture at the end, as often as
    /// it is called. Copies of the Frame share the picture.
    /// @throws tio::ffmpeg::Exception when decoding fails; reading on skips what failed
    VideoPacketDecoder::Frame readNextFrame();

protected:
    bool frameReady() override;
    PacketDecoder& packetDecoder() override { return videoDecoder; }

private:
    mutable VideoPacketDecoder videoDecoder; // primed by queries as well
    VideoPacketDecoder::Frame currentFrame;
};

} // namespace tio::ffmpeg
