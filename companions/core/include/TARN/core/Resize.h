#pragma once

namespace tio {

/// Names that belong to changing the size of a picture.
struct Resize {
    /// How the pixels of a resized picture are computed from those of the original. The values are
    /// stable and may be stored.
    enum class Algorithm : int {
        Nearest = 0,  ///< The closest source pixel, unchanged; the fastest, keeps hard edges.
        Bilinear = 1, ///< Linear interpolation; averages over the covered pixels when shrinking.
        Area = 2,     ///< Mean over the covered area; the natural choice for shrinking.
        Bicubic = 3,  ///< Cubic interpolation; sharper than `Bilinear`, may overshoot at edges.
        Lanczos = 4,  ///< Windowed sinc; the sharpest and slowest, may ring at edges.
    };
};

} // namespace tio
