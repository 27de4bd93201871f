#pragma once

#include <TARN/core/Vec.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/Frame.h>
#include <TARN/videoio/PacketDecoder.h>
#include <TARN/videoio/Types.h>

#include <memory>

namespace tio::ffmpeg {

namespace detail {
class PictureMaker;
}

/// Decodes video packets to upright pictures in the pixel format asked for.
///
/// How pictures are turned is taken from the "rotate" tag of their stream, which InputFormatContext
/// sets for MP4 files, and where there is none from its display matrix. Pictures come in one of
/// four turns; one that is to be mirrored as well comes out as its nearest turn, and one at an
/// angle between as it is stored. FrameReader shows all eight ways.
///
/// RGB is made by BT.601 whatever the stream's tags say; FrameReader goes by the tags.
/// Thread rule: used by one thread at a time.
class TARN_VIDEOIO_API VideoPacketDecoder : public PacketDecoder {
public:
    /// One picture and its time.
    struct Frame {
        std::shared_ptr<tio::FrameBase> frame; ///< empty when there was no picture
        Rational timestamp;                    ///< presentation time in seconds
        Rational unitTime;                     ///< seconds per tick of the stream
    };

    /// PixelFormat::Default gives RGB.
    explicit VideoPacketDecoder(PixelFormat pixelFormat = PixelFormat::Default);
    ~VideoPacketDecoder() override;

    /// Size of upright pictures, (height, width) in pixels: in this order, unlike
    /// InputFormatContext::getResolutionOfStream(). (FrameReader::height() and width() name them.)
    /// @throws tio::Exception before the first packet was accepted
    [[nodiscard]] tio::Vec<int, 2> getFrameSize() const;

    /// The next picture, or a Frame without one when another packet is needed.
    /// @throws tio::ffmpeg::Exception when decoding fails
    /// @throws tio::Exception when the picture cannot be converted
    Frame readNextFrame();

protected:
    void onCodecOpened() override;

private:
    friend class VideoStreamDecoder; // turns the MP4 family alone

    std::unique_ptr<detail::PictureMaker> pictures;
    bool converterAskedFor = false;
    bool turnsByTagAlone = false;
};

} // namespace tio::ffmpeg
