#pragma once

#include <TARN/core/Vec.h>
#include <TARN/videoio/Frame.h>
#include <TARN/videoio/Types.h>

#include <memory>

struct AVCodecContext;
struct AVFrame;
struct AVStream;
class FfmpegVideoFilter;
class SWScaleDecoder;

namespace tio::ffmpeg::detail {

/// Makes upright pictures in one pixel format of the decoded frames of a stream.
/// Thread rule: used by one thread at a time.
class PictureMaker {
public:
    /// PixelFormat::Default gives RGB.
    explicit PictureMaker(PixelFormat pixelFormat);
    PictureMaker(const PictureMaker&) = delete;
    PictureMaker& operator=(const PictureMaker&) = delete;
    ~PictureMaker();

    /// What is asked how a stream is turned.
    enum class Turning { ByTag, ByTagOrMatrix };

    /// Turns from now on as the stream says. May be called once more where it threw.
    /// @throws tio::ffmpeg::Exception when the filter that turns cannot be made
    void turnAs(const AVStream& stream, Turning turning);

    /// Turns from now on by so many quarters, clockwise.
    /// @throws as above
    void turnBy(const AVStream& stream, int quarters);

    /// Makes the converter for what the codec announces. Without it the first picture does so.
    /// @throws tio::Exception when the codec states no pixel format
    void expectPicturesOf(AVCodecContext& codec);

    /// Size of upright pictures, (height, width) in pixels.
    [[nodiscard]] tio::Vec<int, 2> size(const AVCodecContext& codec) const;

    /// Turns the frame in place, and converts it.
    /// @throws tio::Exception when it cannot be turned or converted
    [[nodiscard]] std::shared_ptr<tio::FrameBase> make(AVFrame& decoded);

private:
    void matchConverterTo(const AVFrame& upright);

    std::shared_ptr<FfmpegVideoFilter> filter; // empty unless the stream is rotated
    std::shared_ptr<SWScaleDecoder> converter; // empty until a pixel format is known
    bool dimensionsSwapped = false;
    PixelFormat target;
};

} // namespace tio::ffmpeg::detail
