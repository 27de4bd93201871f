#include "Resizer.h"

#include <TARN/core/Exception.h>

extern "C" {
#include <libswscale/swscale.h>
}

namespace tio::PixelFormat {

namespace {

int filterFlag(Resize::Algorithm algorithm) {
    switch (algorithm) {
    case Resize::Algorithm::Nearest:
        return SWS_POINT;
    case Resize::Algorithm::Bilinear:
        return SWS_BILINEAR;
    case Resize::Algorithm::Area:
        return SWS_AREA;
    case Resize::Algorithm::Bicubic:
        return SWS_BICUBIC;
    case Resize::Algorithm::Lanczos:
        return SWS_LANCZOS;
    }
    throw Exception("There is no such resize algorithm");
}

} // namespace

void Resizer::FreeContext::operator()(SwsContext* owned) const noexcept {
    sws_freeContext(owned);
}

Resizer::Resizer(Sampling sampling, Vec<int, 2> from, Vec<int, 2> to, Resize::Algorithm algorithm)
    : size(to) {
    const auto format = sampling == Sampling::Full ? AV_PIX_FMT_YUV444P : AV_PIX_FMT_YUV420P;
    // Exact rounding costs next to nothing for planes and gives the same picture on every CPU.
    const int flags = filterFlag(algorithm) | SWS_ACCURATE_RND | SWS_BITEXACT;
    context.reset(sws_getContext(from[1], from[0], format, to[1], to[0], AV_PIX_FMT_YUV444P, flags,
                                 nullptr, nullptr, nullptr));
    if (!context)
        throw Exception("The picture cannot be scaled that far");
}

PlanarPicture Resizer::resize(const PlanarPicture& source) {
    PlanarPicture result = makePaddedPicture(size);
    const uint8_t* from[3];
    uint8_t* to[3];
    int fromSteps[3];
    int toSteps[3];
    for (std::size_t i = 0; i < result.planes.size(); ++i) {
        from[i] = source.planes[i].row(0);
        fromSteps[i] = source.planes[i].step();
        to[i] = result.planes[i].row(0);
        toSteps[i] = result.planes[i].step();
    }
    if (sws_scale(context.get(), from, fromSteps, 0, source.size[0], to, toSteps) != size[0])
        throw Exception("The picture could not be scaled");
    return result;
}

} // namespace tio::PixelFormat
