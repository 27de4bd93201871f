#pragma once

#include <TARN/core/Vec.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/PacketEncoder.h>
#include <TARN/videoio/RgbImage.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

class SWScaleEncoder;

namespace tio::ffmpeg {

/// Encodes RGB images to H.264: 4:2:0, BT.601 without tags, no B-frames. (A `ClipWriter` tags its
/// colours.)
/// Thread rule: used by one thread at a time.
class TARN_VIDEOIO_API VideoPacketEncoder : public PacketEncoder {
public:
    using Image = RgbImage;

    /// @param size (height, width) in pixels, as everywhere in this library and other than in
    ///        FFmpeg; odd sizes are rounded up to even ones: an odd number of columns gets a black
    ///        column, and with it an even number of rows a black last row in place of the image's
    ///        own; an added row is whatever was in memory. (A `ClipWriter` has no such edges.)
    /// @param timeBase seconds per tick; for a constant frame rate, one over the rate
    /// @param options of FFmpeg's encoder, such as "crf"; they override "preset" = "veryfast" and
    ///        "level" = "51". "bitrate" sets the rate control to that many bits per second.
    /// @throws tio::Exception, tio::ffmpeg::Exception when the encoder cannot be opened
    VideoPacketEncoder(tio::Vec<int, 2> size, Rational timeBase,
                       const std::map<std::string, std::string>& options);
    ~VideoPacketEncoder() override;

    /// Encodes an image shown at `time` seconds, truncated toward zero to a tick of the time base.
    /// Its pixels are read before the call returns.
    /// @returns the packets that the encoder gives now, often none at first
    /// @throws tio::Exception for an image of another size
    /// @throws tio::ffmpeg::Exception when encoding fails
    std::vector<OutputPacket> writeNextFrame(Image image, Rational time);

    /// The same one tick after the frame before; the first frame of all is at time 0. This counts,
    /// while VideoStreamEncoder::writeNextFrame() without a time does not.
    /// (ClipWriter::writePicture() without a time counts too.)
    std::vector<OutputPacket> writeNextFrame(Image image);

private:
    void allocateFrame();

    std::shared_ptr<SWScaleEncoder> swscaleEncoder;
};

} // namespace tio::ffmpeg
