#pragma once

#include "exact/run/FrameDecoder.h"
#include "picture/PictureConverter.h"
#include "picture/orientation.h"

#include <TARN/videoio/Frame.h>
#include <TARN/videoio/Image.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// What becomes of a decoded picture: an image, a frame, or pixels in memory of the caller's. Each
/// delivery makes new pixels, which are nobody else's.
/// Thread rule: used by one thread at a time.
class PictureDelivery {
public:
    explicit PictureDelivery(const PictureConverter::Target& target);

    /// Turns pictures from now on as their stream says. Costs nothing where its tag is as before.
    void turnAs(const AVStream& stream);

    /// Whether an upright picture is as wide as the stored one is high.
    [[nodiscard]] bool turnsOnSide() const noexcept { return turning.isOnItsSide(); }

    /// Whether memory could be for a picture of the stream, as far as that is known before one
    /// is decoded: it has the size given, or that of a picture that came before.
    /// @throws tio::Exception where it could not
    void requirePossible(const ImageView& view, int height, int width) const;

    /// Of the picture that the decoder stands on.
    /// @throws tio::Exception when it cannot be converted
    [[nodiscard]] Image image(FrameDecoder& decoder);
    void writeTo(const ImageView& view, FrameDecoder& decoder);
    [[nodiscard]] std::shared_ptr<tio::FrameBase> frame(FrameDecoder& decoder);

private:
    struct Size {
        int height;
        int width;
    };

    [[nodiscard]] Size sizeOf(const AVFrame& picture);
    [[nodiscard]] bool isAsStreamDecodersGiveIt(const AVFrame& picture) const;

    PictureConverter::Target target;
    PictureConverter converter;
    std::optional<std::string> tag; // by which pictures are turned; empty where there is none
    Turning turning;
    int quartersOfTag = 0;   // clockwise, by which stream decoders turn
    std::vector<Size> sizes; // of the pictures so far
};

/// Bytes of all planes.
[[nodiscard]] int64_t byteCountOf(const tio::FrameBase& frame, PictureFormat format);

} // namespace tio::ffmpeg::detail
