#include "picture/PictureConverter.h"
#include "support/GuardedMemory.h"
#include "support/MadePictures.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <tuple>
#include <vector>

namespace tio::ffmpeg::detail {
namespace {

using test::noisyPicture;

constexpr int largest = 67;

/// Each kind of layout that pictures come in.
constexpr std::array<AVPixelFormat, 10> sources = {
    AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV420P10,
    AV_PIX_FMT_NV12,    AV_PIX_FMT_GRAY8,   AV_PIX_FMT_RGB24,   AV_PIX_FMT_GBRP,
    AV_PIX_FMT_YUYV422, AV_PIX_FMT_PAL8};

/// A picture each plane of which ends where the process may read nothing more, in rows that follow
/// one another.
class TightPicture {
public:
    explicit TightPicture(const AVFrame& from)
        : frame(test::checkFound(av_frame_alloc(), "frame")) {
        const auto format = static_cast<AVPixelFormat>(from.format);
        const AVPixFmtDescriptor& layout = *av_pix_fmt_desc_get(format);
        test::check(av_frame_copy_props(frame.get(), &from), "properties");
        frame->format = from.format;
        frame->width = from.width;
        frame->height = from.height;
        for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
            const int shift = plane == 1 || plane == 2 ? layout.log2_chroma_h : 0;
            const bool palette = plane == 1 && format == AV_PIX_FMT_PAL8;
            const int rows = palette ? 1 : AV_CEIL_RSHIFT(from.height, shift);
            const int bytes =
                palette ? AVPALETTE_SIZE : av_image_get_linesize(format, from.width, plane);
            add(plane, from, rows, bytes);
        }
        if (format == AV_PIX_FMT_PAL8 && frame->data[1] == nullptr)
            add(1, from, 1, AVPALETTE_SIZE);
    }

    [[nodiscard]] const AVFrame& operator*() const { return *frame; }

private:
    void add(int plane, const AVFrame& from, int rows, int bytes) {
        planes.push_back(std::make_unique<test::GuardedMemory>(static_cast<size_t>(rows * bytes)));
        frame->data[plane] = planes.back()->data();
        frame->linesize[plane] = bytes;
        for (int row = 0; row < rows; ++row)
            std::memcpy(frame->data[plane] + row * bytes,
                        from.data[plane] + row * from.linesize[plane], static_cast<size_t>(bytes));
    }

    test::FramePointer frame;
    std::vector<std::unique_ptr<test::GuardedMemory>> planes;
};

/// Memory for a picture, of which the same is true.
class TightTarget {
public:
    TightTarget(PictureFormat format, int height, int width) {
        view.format = format;
        view.height = height;
        view.width = width;
        for (int plane = 0; plane < planeCount(format); ++plane) {
            const PlaneSize part = planeSize(format, height, width, plane);
            planes.push_back(std::make_unique<test::GuardedMemory>(
                static_cast<size_t>(part.rowBytes * part.rows)));
            view.planes[static_cast<size_t>(plane)] = planes.back()->data();
            view.strides[static_cast<size_t>(plane)] = part.rowBytes;
        }
    }

    /// Whether the picture is the same, row by row.
    [[nodiscard]] bool holds(const Image& image) const {
        for (int plane = 0; plane < planeCount(view.format); ++plane) {
            const PlaneSize part = planeSize(view.format, view.height, view.width, plane);
            const uint8_t* row = planes[static_cast<size_t>(plane)]->data();
            for (int y = 0; y < part.rows; ++y, row += part.rowBytes)
                if (std::memcmp(row, image.data(plane) + y * image.stride(plane),
                                static_cast<size_t>(part.rowBytes)) != 0)
                    return false;
        }
        return true;
    }

    ImageView view;

private:
    std::vector<std::unique_ptr<test::GuardedMemory>> planes;
};

class MemoryWithoutRoom : public ::testing::TestWithParam<std::tuple<PictureFormat, int>> {
protected:
    /// Converts from and to memory without room, into the size given or, with 0, as it is.
    static void convertTightly(AVPixelFormat source, int width, int height, int size) {
        const auto [format, way] = GetParam();
        const auto loose = noisyPicture(source, width, height);
        const TightPicture tight(*loose);
        PictureConverter converter({format, Colours::Tagged, size, size == 0 ? 0 : 68 - size});
        const Image expected = converter.convert(*loose, way);
        const TightTarget target(format, expected.height(), expected.width());
        converter.convert(*tight, way, target.view);
        ASSERT_TRUE(target.holds(expected))
            << av_get_pix_fmt_name(source) << " of " << width << " x " << height << " to " << size;
    }
};

TEST_P(MemoryWithoutRoom, IsNeverLeftInAnySize) {
    for (const AVPixelFormat source : sources)
        for (int size = 1; size <= largest; ++size) {
            ASSERT_NO_FATAL_FAILURE(convertTightly(source, size, 68 - size, 0));
            ASSERT_NO_FATAL_FAILURE(convertTightly(source, size, size, 0));
        }
}

TEST_P(MemoryWithoutRoom, IsNeverLeftWhereTheSizeChanges) {
    for (size_t kind = 0; kind < sources.size(); ++kind)
        for (int size = 1; size <= largest; size += 2) {
            const int other = (size * 29 + static_cast<int>(kind) * 7) % largest + 1;
            ASSERT_NO_FATAL_FAILURE(convertTightly(sources[kind], size, 68 - size, other));
        }
}

INSTANTIATE_TEST_SUITE_P(
    All, MemoryWithoutRoom,
    ::testing::Combine(::testing::Values(PictureFormat::Rgb8, PictureFormat::Rgb16,
                                         PictureFormat::Grey8, PictureFormat::Grey16,
                                         PictureFormat::Nv12, PictureFormat::Yuv420,
                                         PictureFormat::Yuv422, PictureFormat::Yuv444,
                                         PictureFormat::Yuv420P10, PictureFormat::Yuv422P10,
                                         PictureFormat::Yuv444P10),
                       ::testing::Range(1, 9)));

} // namespace
} // namespace tio::ffmpeg::detail
