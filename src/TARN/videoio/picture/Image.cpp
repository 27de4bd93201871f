#include "base/checks.h"

#include <TARN/core/MatAlloc.h>
#include <TARN/videoio/Image.h>

#include <algorithm>
#include <string>

namespace tio::ffmpeg {

namespace {

struct Layout {
    int planes;
    int channels; ///< of plane 0
    int depth;
    int chromaShiftX; ///< how often the chroma's width is halved
    int chromaShiftY;
};

constexpr std::array<Layout, 11> layouts = {{
    {1, 3, 8, 0, 0},
    {1, 3, 16, 0, 0},
    {1, 1, 8, 0, 0},
    {1, 1, 16, 0, 0},
    {2, 1, 8, 1, 1},
    {3, 1, 8, 1, 1},
    {3, 1, 8, 1, 0},
    {3, 1, 8, 0, 0},
    {3, 1, 10, 1, 1},
    {3, 1, 10, 1, 0},
    {3, 1, 10, 0, 0},
}};

const Layout& layoutOf(PictureFormat format) {
    const auto number = static_cast<size_t>(format);
    if (number >= layouts.size())
        detail::failPlainly("There is no picture format " +
                            std::to_string(static_cast<int32_t>(format)));
    return layouts[number];
}

int halved(int length, int shift) {
    return (length >> shift) + ((length & ((1 << shift) - 1)) != 0 ? 1 : 0);
}

} // namespace

int planeCount(PictureFormat format) {
    return layoutOf(format).planes;
}

int channelCount(PictureFormat format) {
    return layoutOf(format).channels;
}

int bitDepth(PictureFormat format) {
    return layoutOf(format).depth;
}

PlaneSize planeSize(PictureFormat format, int height, int width, int plane) {
    const Layout& layout = layoutOf(format);
    if (plane < 0 || plane >= layout.planes)
        detail::failPlainly("There is no plane " + std::to_string(plane) + " in this format");
    if (height < 1 || width < 1)
        detail::failPlainly("A picture cannot be " + std::to_string(width) + " x " +
                            std::to_string(height));
    const int64_t sampleBytes = layout.depth > 8 ? 2 : 1;
    if (plane == 0)
        return {height, sampleBytes * layout.channels * width};
    const int samples = layout.planes == 2 ? 2 : 1; // Cb and Cr in turn
    return {halved(height, layout.chromaShiftY),
            sampleBytes * samples * halved(width, layout.chromaShiftX)};
}

Image::Image(PictureFormat format, int height, int width) {
    pixels.format = format;
    pixels.height = height;
    pixels.width = width;
    std::array<int64_t, mostPlanes> offsets{};
    for (int plane = 0; plane < planeCount(format); ++plane) {
        const PlaneSize size = planeSize(format, height, width, plane);
        offsets[at(plane)] = bytes;
        pixels.strides[at(plane)] = size.rowBytes;
        int64_t planeBytes = 0;
        if (__builtin_mul_overflow(size.rowBytes, int64_t{size.rows}, &planeBytes) ||
            __builtin_add_overflow(bytes, planeBytes, &bytes))
            detail::failPlainly("A picture of " + std::to_string(width) + " x " +
                                std::to_string(height) + " does not fit into memory");
    }
    storage = MatAlloc::getGlobalMatAlloc()->getBytes(static_cast<size_t>(bytes));
    for (int plane = 0; plane < planeCount(format); ++plane)
        pixels.planes[at(plane)] = reinterpret_cast<uint8_t*>(storage.get()) + offsets[at(plane)];
}

ConstImageView Image::view() const noexcept {
    ConstImageView view;
    view.format = pixels.format;
    view.height = pixels.height;
    view.width = pixels.width;
    view.strides = pixels.strides;
    for (size_t plane = 0; plane < pixels.planes.size(); ++plane)
        view.planes[plane] = pixels.planes[plane];
    return view;
}

Image Image::clone() const {
    if (empty())
        return {};
    Image copy(format(), height(), width());
    std::copy_n(storage.get(), bytes, copy.storage.get());
    return copy;
}

} // namespace tio::ffmpeg
