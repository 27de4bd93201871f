#include "base/unnamedFile.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace tio::ffmpeg::detail {

// Where the file system cannot make a file without a name, its name is taken away at once.
int openUnnamed(const std::string& folder) {
    constexpr mode_t ownerAlone = 0600;
    const int opened = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, ownerAlone);
    if (opened >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL))
        return opened;
    std::string name = folder + "/.tarn-videoio-XXXXXX.part";
    const int named = ::mkostemps(name.data(), 5, O_CLOEXEC);
    if (named >= 0)
        ::unlink(name.c_str());
    return named;
}

} // namespace tio::ffmpeg::detail
