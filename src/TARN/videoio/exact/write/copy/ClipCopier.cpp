#include "base/initialise.h"
#include "exact/write/copy/CopyRun.h"
#include "exact/write/copy/copyPlan.h"
#include "exact/write/refusal.h"

#include <TARN/videoio/AtomicFile.h>
#include <TARN/videoio/ClipCopier.h>

namespace tio::ffmpeg {

class ClipCopier::Core {
public:
    Core(const Source& source, const std::string& path, const ClipCopierOptions& copierOptions)
        : name(path), options(copierOptions), container(detail::containerOf(path)) {
        detail::checkRange(path, options);
        detail::requireOtherFile(source, path);
        copy.emplace(source, path, container, options);
        file.emplace(path, options.overwrite ? AtomicFile::Existing::Replace
                                             : AtomicFile::Existing::Refuse);
    }

    CopiedClip run(const CopyProgressCallback& progress) {
        if (!copy || running)
            detail::refuse(name, "the clip was copied already, or that failed, or goes on");
        running = true;
        try {
            if (file->isDirect())
                file->makeWay(); // a muxer goes to and fro in what it writes
            CopiedClip copied = copy->copyTo(file->pathToWrite(), progress);
            copy.reset();
            file->publish();
            return copied;
        } catch (...) {
            copy.reset();
            file.reset();
            throw;
        }
    }

private:
    std::string name;
    ClipCopierOptions options;
    const detail::ClipContainer& container;
    std::optional<AtomicFile> file;
    std::optional<detail::CopyRun> copy;
    bool running = false; ///< also when it has ended
};

ClipCopier::ClipCopier(const Source& source, const std::string& path,
                       const ClipCopierOptions& options) {
    detail::initialiseOnce();
    core = std::make_unique<Core>(source, path, options);
}

ClipCopier::~ClipCopier() = default;
ClipCopier::ClipCopier(ClipCopier&& other) noexcept = default;
ClipCopier& ClipCopier::operator=(ClipCopier&& other) noexcept = default;

CopiedClip ClipCopier::run(const CopyProgressCallback& progress) {
    return core->run(progress);
}

} // namespace tio::ffmpeg
