#pragma once

#include <TARN/videoio/Export.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace tio::ffmpeg {

/// How the pixels of an Image lie in memory. Samples of more than 8 bits are 16-bit integers in the
/// machine's byte order. The values are part of the interface and never change.
enum class PictureFormat : int32_t {
    Rgb8 = 0,   ///< one plane; R, G, B, 8 bits each
    Rgb16 = 1,  ///< one plane; R, G, B, 16 bits each, 65535 the brightest
    Grey8 = 2,  ///< one plane; 0 black, 255 white
    Grey16 = 3, ///< one plane; 0 black, 65535 white
    Nv12 = 4,   ///< Y, then interleaved Cb and Cr at half the width and height, rounded up; 8 bits
    Yuv420 = 5, ///< Y, Cb, Cr in planes; chroma at half the width and height, rounded up; 8 bits
    Yuv422 = 6, ///< the same with chroma at half the width
    Yuv444 = 7, ///< the same with chroma at full size
    Yuv420P10 = 8,  ///< as Yuv420 in 16-bit samples from 0 to 1023
    Yuv422P10 = 9,  ///< as Yuv422, the same way
    Yuv444P10 = 10, ///< as Yuv444, the same way
};

/// What a decoded picture's samples are taken for when they become RGB or grey. The values are part
/// of the interface and never change.
enum class Colours : int32_t {
    /// What each picture is tagged with: its matrix and its range. What is not tagged is BT.601 in
    /// limited range; grey is in full range.
    Tagged = 0,
    Bt601 = 1, ///< BT.601 in limited range whatever the tags say, as the stream decoders take it
};

/// The planes that any format has at most.
constexpr int mostPlanes = 3;

/// Number of planes of a format.
/// @throws tio::Exception for a value that is no format
[[nodiscard]] TARN_VIDEOIO_API int planeCount(PictureFormat format);

/// Values of one pixel in plane 0: 3 for RGB, else 1.
/// @throws tio::Exception for a value that is no format
[[nodiscard]] TARN_VIDEOIO_API int channelCount(PictureFormat format);

/// Bits that a sample uses: 8, 10 or 16.
/// @throws tio::Exception for a value that is no format
[[nodiscard]] TARN_VIDEOIO_API int bitDepth(PictureFormat format);

/// Size of one plane of a picture.
struct PlaneSize {
    int rows = 0;
    int64_t rowBytes = 0; ///< that hold pixels; rows may lie further apart
};

/// @param height, width  of the picture in pixels
/// @throws tio::Exception for a plane or a format that does not exist, or a size below 1
[[nodiscard]] TARN_VIDEOIO_API PlaneSize planeSize(PictureFormat format, int height, int width,
                                                   int plane);

/// Pixels in memory that belongs to somebody else: where each plane begins and how many bytes its
/// rows lie apart, at least PlaneSize::rowBytes, and negative where rows are stored from the bottom
/// up. Planes that the format does not have are null.
template <typename Byte>
struct BasicImageView {
    PictureFormat format = PictureFormat::Rgb8;
    int height = 0; ///< in pixels
    int width = 0;
    std::array<Byte*, mostPlanes> planes{};
    std::array<std::ptrdiff_t, mostPlanes> strides{}; ///< in bytes
};

using ImageView = BasicImageView<uint8_t>;            ///< to write into
using ConstImageView = BasicImageView<const uint8_t>; ///< to read from

/// A picture that knows its size, format and memory. Copies share the pixels, which live as long as
/// the last copy; clone() makes pixels of one's own.
///
/// All planes are in one block, one after the other. The rows of an Image that the library makes
/// follow each other without a gap.
/// Thread rule: like std::shared_ptr. Different objects may be used from any threads; writing
/// pixels that another thread reads needs a lock of the caller's.
class TARN_VIDEOIO_API Image {
public:
    /// No pixels.
    Image() = default;

    /// Pixels that are not initialised.
    /// @throws tio::Exception for a size below 1 or beyond memory's limits, or a format that does
    ///         not exist
    Image(PictureFormat format, int height, int width);

    [[nodiscard]] bool empty() const noexcept { return !storage; }
    [[nodiscard]] PictureFormat format() const noexcept { return pixels.format; }
    [[nodiscard]] int height() const noexcept { return pixels.height; }
    [[nodiscard]] int width() const noexcept { return pixels.width; }
    [[nodiscard]] int channels() const noexcept { return channelCount(pixels.format); }
    [[nodiscard]] int depth() const noexcept { return bitDepth(pixels.format); }

    /// First byte of a plane, and the distance of its rows in bytes. `plane` must exist.
    [[nodiscard]] uint8_t* data(int plane = 0) noexcept { return pixels.planes[at(plane)]; }
    [[nodiscard]] const uint8_t* data(int plane = 0) const noexcept {
        return pixels.planes[at(plane)];
    }
    [[nodiscard]] std::ptrdiff_t stride(int plane = 0) const noexcept {
        return pixels.strides[at(plane)];
    }

    /// Bytes of all planes.
    [[nodiscard]] int64_t byteCount() const noexcept { return bytes; }

    /// Valid as long as an Image that shares these pixels.
    [[nodiscard]] ImageView view() noexcept { return pixels; }
    [[nodiscard]] ConstImageView view() const noexcept;

    /// A copy that shares nothing.
    [[nodiscard]] Image clone() const;

private:
    static std::size_t at(int plane) noexcept { return static_cast<std::size_t>(plane); }

    ImageView pixels;
    std::shared_ptr<char> storage;
    int64_t bytes = 0;
};

} // namespace tio::ffmpeg
