#pragma once

#include "terminal/Failure.h"
#include "terminal/Interruption.h"

#include <TARN/videoio/ClipWriter.h>

#include <optional>
#include <string>
#include <utility>

namespace tio::tool {

/// Whether a name ends as that of a clip with pictures does.
[[nodiscard]] bool isClipName(const std::string& path);

/// For pictures, and sound beside them: .mp4, .m4v, .mov, .mkv or .webm at the end of the name.
/// @throws Failure with ExitCode::Usage that names the file
void requireClipName(const std::string& path);

/// The same for sound alone: .wav, .flac, .m4a or .mka.
void requireSoundName(const std::string& path);

/// A clip that is being written. It gets its name when it is complete; an interruption by a signal
/// removes what is there of it.
class OutputClip {
public:
    /// @throws Failure that names the file: with ExitCode::Usage for options that cannot be, with
    ///         ExitCode::Output for a file that cannot be made, or is the one that is read
    OutputClip(const std::string& name, const ffmpeg::ClipWriterOptions& options);

    /// Runs work that writes: what it throws becomes a Failure that names the file.
    template <typename Work>
    void write(Work&& work) {
        writing(path, [&] { work(*writer); });
    }

    /// Completes the file and gives it its name.
    void finish();

private:
    std::string path;
    std::optional<ffmpeg::ClipWriter> writer;
    std::optional<RemovedOnInterruption> cleanup;
};

} // namespace tio::tool
