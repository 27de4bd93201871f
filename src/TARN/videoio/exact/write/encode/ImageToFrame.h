#pragma once

#include "base/handles.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/ClipWriterOptions.h>
#include <TARN/videoio/Image.h>

#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// FFmpeg's name for the layout of an image.
[[nodiscard]] AVPixelFormat pixelFormatOf(PictureFormat format);

/// How pictures of a format are stored by a codec, unless something else is asked for.
/// @throws ClipRefusal when `asked` is not empty and the codec does not take it
[[nodiscard]] AVPixelFormat storedFormat(const AVCodec& codec, PictureFormat format,
                                         const std::string& asked, const std::string& path);

/// Matrix and range of stored pictures.
struct StoredColours {
    AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
    AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
    AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
    AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
};

/// @param height  of the pictures, which decides where nothing is asked for
[[nodiscard]] StoredColours storedColours(ClipColours asked, AVPixelFormat stored, int height);

/// Brings pictures into the layout in which they are stored. Planes that are laid out so already
/// are copied as they are.
class ImageToFrame {
public:
    ImageToFrame(AVPixelFormat stored, StoredColours colours) : target(stored), tags(colours) {}

    /// A frame with memory of its own.
    /// @throws tio::ffmpeg::Exception with `path` when memory runs out
    [[nodiscard]] FrameHandle convert(const ConstImageView& picture, const std::string& path);

private:
    void prepare(const ConstImageView& picture, const std::string& path);
    void convertPacked(const ConstImageView& picture, AVFrame& frame);

    AVPixelFormat target;
    StoredColours tags;
    SwsContextHandle context;
    AVPixelFormat source = AV_PIX_FMT_NONE; ///< that `context` takes
    std::vector<uint8_t> lastRows;          ///< of a packed picture
};

} // namespace tio::ffmpeg::detail
