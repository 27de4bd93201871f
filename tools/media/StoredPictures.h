#pragma once

#include "media/Input.h"
#include "media/PictureOptions.h"

#include <TARN/videoio/ClipWriterOptions.h>

namespace tio::tool {

/// Chooses how the pictures of a clip are read to be encoded again: as the samples of Y, Cb and Cr
/// that it stores, with their matrix, where a ClipWriter can tag that, and else as RGB, which is of
/// 16 bits where the clip has more than 8.
void chooseStoredPictures(const Clip& clip, PictureOptions& pictures,
                          ffmpeg::ClipWriterOptions& writing);

} // namespace tio::tool
