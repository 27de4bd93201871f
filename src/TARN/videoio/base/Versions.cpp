#include "base/filterLibrary.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/Versions.h>

namespace tio::ffmpeg {

namespace {

VersionNumber numberOf(unsigned packed) {
    return {static_cast<int>(AV_VERSION_MAJOR(packed)), static_cast<int>(AV_VERSION_MINOR(packed)),
            static_cast<int>(AV_VERSION_MICRO(packed))};
}

} // namespace

std::vector<LibraryVersion> versions() {
    std::vector<LibraryVersion> all;
    all.reserve(compat::libraries.size() + 1);
    for (const compat::Library& library : compat::libraries)
        all.push_back({library.name, numberOf(library.compiled), numberOf(library.loaded())});
    all.push_back({"libavfilter", numberOf(compat::filterLibraryVersion),
                   numberOf(detail::filterLibrary().version())});
    return all;
}

std::string loadedRelease() {
    return av_version_info();
}

} // namespace tio::ffmpeg
