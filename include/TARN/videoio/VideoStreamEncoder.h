#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/StreamEncoder.h>
#include <TARN/videoio/VideoPacketEncoder.h>

#include <memory>

namespace tio::ffmpeg {

/// Writes RGB images as the H.264 stream of an MP4 file. A `ClipWriter` does so without the corners
/// that are named here.
/// Thread rule: used by one thread at a time, together with its context.
///
/// @code
/// auto output = std::make_shared<tio::ffmpeg::OutputFormatContext>("clip.mp4");
/// {
///     tio::ffmpeg::VideoStreamEncoder video(output, {480, 640}, {1, 25});
///     video.writeNextFrame(image, {0, 1});
/// }
/// output->finish();
/// @endcode
class TARN_VIDEOIO_API VideoStreamEncoder : public StreamEncoder {
public:
    /// @param size (height, width) in pixels
    /// @param timeBase seconds per tick of the encoder; the file counts in 1/90000 s, to which
    ///        times are rounded once more
    /// @throws as VideoPacketEncoder and OutputStream
    VideoStreamEncoder(std::shared_ptr<OutputFormatContext> context, tio::Vec<int, 2> size,
                       Rational timeBase);
    ~VideoStreamEncoder() override;

    /// Writes an image shown at `time` seconds.
    /// @throws as VideoPacketEncoder::writeNextFrame() and OutputStream::writePacket()
    /// @throws tio::Exception for an image more than 6 h 37 min after the one before; it is not
    ///         taken, and another may follow
    void writeNextFrame(VideoPacketEncoder::Image image, Rational time);

    /// Writes an image at minus one tick, every time. A stream of several images needs times of its
    /// own: use the other form, or ClipWriter::writePicture(), which gives every picture without a
    /// time the next one.
    void writeNextFrame(VideoPacketEncoder::Image image);
};

} // namespace tio::ffmpeg
