#pragma once

#include "PlanarPicture.h"

#include <TARN/core/Resize.h>

#include <memory>

struct SwsContext;

namespace tio::PixelFormat {

/// Resamples planes of bytes, each for itself. Made for one pair of sizes that differ.
///
/// R, G and B are resampled just like Y, Cb and Cr of full sampling: no colour is converted on the
/// way, so values that are equal everywhere come out unchanged, and the work is a fraction of what
/// packed pixels would take.
///
/// Thread rule: used by one thread at a time.
class Resizer {
public:
    /// @throws tio::Exception if the algorithm does not exist, or if these sizes lie too far apart.
    Resizer(Sampling sampling, Vec<int, 2> from, Vec<int, 2> to, Resize::Algorithm algorithm);

    /// A new picture of full sampling; chroma planes of fewer samples are brought to its size.
    /// @param source has the size and sampling that the resizer was made for.
    [[nodiscard]] PlanarPicture resize(const PlanarPicture& source);

private:
    struct FreeContext {
        void operator()(SwsContext* context) const noexcept;
    };

    Vec<int, 2> size; // of the result
    std::unique_ptr<SwsContext, FreeContext> context;
};

} // namespace tio::PixelFormat
