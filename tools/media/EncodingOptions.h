#pragma once

#include <TARN/videoio/ClipWriterOptions.h>

#include <CLI/CLI.hpp>
#include <string>

namespace tio::tool {

/// What the user says of how a clip is encoded.
struct EncodingOptions {
    ffmpeg::ClipWriterOptions clip;

    /// Whether nothing was said.
    [[nodiscard]] bool areUsual() const;

    /// The same for a clip of that name; H.264 and HEVC without a preset are encoded fast.
    [[nodiscard]] ffmpeg::ClipWriterOptions forClip(const std::string& path) const;
};

/// Adds --codec, --preset, --crf, --bitrate, --rate and --fragmented to a command. `options` must
/// outlive it.
void addEncodingOptions(CLI::App& command, EncodingOptions& options);

} // namespace tio::tool
