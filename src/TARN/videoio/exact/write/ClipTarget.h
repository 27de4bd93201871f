#pragma once

#include "base/fileHandle.h"

#include <TARN/videoio/AtomicFile.h>
#include <TARN/videoio/ByteSink.h>

#include <memory>
#include <optional>
#include <string>

namespace tio::ffmpeg::detail {

/// Where a clip goes: a file that gets its name late, or a sink of the caller's.
class ClipTarget {
public:
    /// @throws tio::ffmpeg::Exception as AtomicFile
    ClipTarget(const std::string& path, bool overwrite);

    /// @param name  of the clip, for messages
    ClipTarget(std::shared_ptr<ByteSink> sink, std::string name);

    /// Where packets may wait in files.
    [[nodiscard]] std::string folder() const;

    /// @name A clip that is written at once
    /// @{
    /// Where it is to be written, before complete() passes it on.
    [[nodiscard]] std::string pathToWrite();
    void complete();
    /// @}

    /// @name A clip that is written while it grows
    /// @{
    [[nodiscard]] std::shared_ptr<ByteSink> openSink();

    /// Gives a file its name, the first time.
    void show();

    /// Ends it.
    void close();
    /// @}

private:
    void pour();

    std::string name;
    std::optional<AtomicFile> file;
    std::shared_ptr<ByteSink> sink;
    FileHandle whole; ///< without a name, until the sink gets it
};

} // namespace tio::ffmpeg::detail
