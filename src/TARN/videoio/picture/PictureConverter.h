#pragma once

#include "ffmpeg_compat.h"
#include "picture/colours.h"

#include <TARN/videoio/Image.h>

#include <memory>

namespace tio::ffmpeg::detail {

/// From decoded pictures to images: of any of our formats, in any size, upright, in the colours
/// that were meant. All of that happens in one pass over the picture, row by row; nothing of the
/// picture's full size lies between.
///
/// Chroma of fewer samples than luma is repeated, as FFmpeg's own conversion of such pictures does.
/// A smaller picture is made of the averages of areas, a larger one of lines between samples.
/// Planes of Y, Cb and Cr keep their matrix and their range; where they are made of RGB, that is
/// BT.601 limited. Thread rule: used by one thread at a time.
class PictureConverter {
public:
    /// What is made of the pictures.
    struct Target {
        PictureFormat format = PictureFormat::Rgb8;
        Colours colours = Colours::Tagged;
        int height = 0; ///< upright; 0 for that of each picture
        int width = 0;
    };

    /// @throws tio::Exception for a format that does not exist, or one side of 0 alone
    explicit PictureConverter(const Target& target);
    PictureConverter(const PictureConverter&) = delete;
    PictureConverter& operator=(const PictureConverter&) = delete;
    ~PictureConverter();

    /// Size of what is made of a picture.
    [[nodiscard]] int heightFor(const AVFrame& picture, int way) const noexcept;
    [[nodiscard]] int widthFor(const AVFrame& picture, int way) const noexcept;

    /// A new image of the picture.
    /// @param way  how it is turned to stand upright: 1 to 8, see orientation.h
    /// @throws tio::Exception for a picture that is empty or whose format cannot be read
    [[nodiscard]] Image convert(const AVFrame& picture, int way);

    /// Writes it into memory of the caller's, in which nothing outside of the rows is touched.
    /// @throws tio::Exception also where that has another format or size, or too short rows
    void convert(const AVFrame& picture, int way, const ImageView& image);

    /// @throws tio::Exception for memory that is not for such a picture
    void requireFitting(const ImageView& image, int height, int width) const;

private:
    struct Plan;
    void planFor(const AVFrame& picture, int way);

    Target target;
    std::unique_ptr<Plan> plan; // for pictures like the latest
};

} // namespace tio::ffmpeg::detail
