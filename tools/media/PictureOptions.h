#pragma once

#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/Image.h>
#include <TARN/videoio/Metadata.h>

#include <CLI/CLI.hpp>
#include <optional>

namespace tio::tool {

/// What the user says of the pictures that a command reads.
struct PictureOptions {
    ffmpeg::PictureFormat format = ffmpeg::PictureFormat::Rgb8;
    ffmpeg::Colours colours = ffmpeg::Colours::Tagged;
    std::optional<int> stream; ///< the best one without it
    int width = 0;             ///< in pixels; 0: what keeps the shape
    int height = 0;

    /// Whether nothing was said.
    [[nodiscard]] bool areUsual() const;

    /// The same for a reader of a stream.
    [[nodiscard]] ffmpeg::FrameReaderOptions forReader(const ffmpeg::Metadata& ofStream) const;
};

/// Adds --stream and --colours to a command. `options` must outlive it.
void addStreamOptions(CLI::App& command, PictureOptions& options);

/// Adds --size.
void addSizeOption(CLI::App& command, PictureOptions& options);

} // namespace tio::tool
