// A program that reaches the private rooms, as fuzz targets and benchmarks of internals do.
#include "picture/filter.h"
#include "picture/swscale.h"

int main() {
    const bool linked = makeRotationFilter != nullptr &&
                        ffPixelFormat(tio::ffmpeg::PixelFormat::NV12) == AV_PIX_FMT_NV12;
    return linked ? 0 : 1;
}
