#pragma once

#include "media/OutputFile.h"
#include "terminal/Failure.h"

#include <TARN/videoio/OutputFormatContext.h>

#include <memory>
#include <string>
#include <utility>

namespace tio::tool {

/// An MP4 file that gets its name only when it is complete, as every OutputFile does.
class Mp4File {
public:
    /// @throws Failure with ExitCode::Output that names the file
    explicit Mp4File(const std::string& name);

    /// What streams and encoders are made on.
    [[nodiscard]] const std::shared_ptr<ffmpeg::OutputFormatContext>& context() const {
        return output;
    }

    /// Runs work that writes: what it throws becomes a Failure that names the file.
    template <typename Work>
    auto write(Work&& work) const {
        return writing(path, std::forward<Work>(work));
    }

    /// Completes the file, once its streams and encoders are gone, and gives it its name.
    /// @throws Failure when nothing was written, or not everything could be
    void publish();

private:
    std::string path;
    OutputFile file;
    std::shared_ptr<ffmpeg::OutputFormatContext> output;
};

} // namespace tio::tool
