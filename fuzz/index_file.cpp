// Any bytes as the index file of a clip: it is loaded, and the stream used with what is left there.

#include "MemoryFile.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio.h>

#include <cstdint>
#include <memory>

namespace {

using namespace tio::ffmpeg;

const std::string& clip() {
    static const tio::test::TemporaryFolder folder;
    static const std::string path = [] {
        const std::string made = folder.file("clip.mp4");
        tio::test::makeClip(made, {});
        return made;
    }();
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    const tio::fuzz::MemoryFile file(bytes, count);
    auto input = std::make_shared<InputFormatContext>(clip());
    InputStream stream(input, 0);
    for (int attempt = 0; attempt < 2; ++attempt) { // what a failed load leaves is used as well
        try {
            stream.loadSeekingIndex(file.path());
        } catch (const tio::Exception&) {
        }
        try {
            (void)stream.getFrameMsMap();
            stream.seekToOrBefore(stream.getFrameCount() - 1);
            (void)stream.getNextPacket();
        } catch (const tio::Exception&) {
        }
    }
    return 0;
}
