#include "PlanarPicture.h"

#include <TARN/core/Exception.h>
#include <TARN/core/MatAlloc.h>

#include <cstring>
#include <limits>

namespace tio::PixelFormat {

namespace {

constexpr int registerBytes = static_cast<int>(MatAlloc::alignment);

int paddedStep(Vec<int, 2> size) {
    constexpr int64_t most = std::numeric_limits<int>::max();
    const int64_t step = (int64_t{size[1]} + registerBytes - 1) / registerBytes * registerBytes;
    if (step > most / size[0])
        throw Exception("The scaled picture would be too large");
    return static_cast<int>(step);
}

} // namespace

PlaneBuffer::PlaneBuffer(int rows, int rowStep_)
    : storage(MatAlloc::getGlobalMatAlloc()->getBytes(static_cast<std::size_t>(rows) *
                                                      static_cast<std::size_t>(rowStep_))),
      rowStep(rowStep_) {
    // SIMD code multiplies what lies after the last row by zero; memory checkers want it defined.
    std::memset(row(rows), 0, MatAlloc::spareBytes);
}

PlanarPicture makeTightPicture(Vec<int, 2> size, Sampling sampling) {
    const bool full = sampling == Sampling::Full;
    const int chromaRows = full ? size[0] : halfRoundedUp(size[0]);
    const int chromaCols = full ? size[1] : halfRoundedUp(size[1]);
    return {size,
            {PlaneBuffer(size[0], size[1]), PlaneBuffer(chromaRows, chromaCols),
             PlaneBuffer(chromaRows, chromaCols)}};
}

PlanarPicture makePaddedPicture(Vec<int, 2> size) {
    const int step = paddedStep(size);
    return {size,
            {PlaneBuffer(size[0], step), PlaneBuffer(size[0], step), PlaneBuffer(size[0], step)}};
}

} // namespace tio::PixelFormat
