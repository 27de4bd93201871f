#pragma once

#include <cstdio>
#include <memory>

namespace tio::ffmpeg::detail {

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

/// Owns a file of the C library.
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

} // namespace tio::ffmpeg::detail
