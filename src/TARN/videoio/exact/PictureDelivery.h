#pragma once

#include "exact/run/FrameDecoder.h"
#include "picture/PictureConverter.h"

#include <TARN/videoio/Frame.h>
#include <TARN/videoio/Image.h>

#include <cstdint>
#include <memory>

namespace tio::ffmpeg::detail {

/// What becomes of a decoded picture: an image, a frame, or pixels in memory of the caller's. Each
/// delivery makes new pixels, which are nobody else's.
/// Thread rule: used by one thread at a time.
class PictureDelivery {
public:
    explicit PictureDelivery(const PictureConverter::Target& target);

    /// Of the picture that the decoder stands on.
    /// @throws tio::Exception when it cannot be converted
    [[nodiscard]] Image image(FrameDecoder& decoder);
    void writeTo(const ImageView& view, FrameDecoder& decoder);
    [[nodiscard]] std::shared_ptr<tio::FrameBase> frame(FrameDecoder& decoder);

private:
    [[nodiscard]] bool isAsStreamDecodersGiveIt(FrameDecoder& decoder) const;

    PictureConverter::Target target;
    PictureConverter converter;
};

/// Bytes of all planes.
[[nodiscard]] int64_t byteCountOf(const tio::FrameBase& frame, PictureFormat format);

} // namespace tio::ffmpeg::detail
