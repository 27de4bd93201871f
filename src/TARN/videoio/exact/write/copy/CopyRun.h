#pragma once

#include "exact/write/ClipMuxer.h"
#include "exact/write/copy/CopiedStream.h"
#include "exact/write/copy/CopyInput.h"

#include <TARN/videoio/ClipCopierOptions.h>

#include <list>
#include <optional>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// Copies the streams of a source once.
class CopyRun {
public:
    /// @param clip  the name that failures tell
    CopyRun(const Source& source, std::string clip, const ClipContainer& container,
            const ClipCopierOptions& options);

    /// @param path  of the file that is written
    CopiedClip copyTo(const std::string& path, const CopyProgressCallback& progress);

private:
    void open();
    void probe();
    void findBeginning();
    [[nodiscard]] bool seekBefore(const Fraction& seconds);
    void readAhead();
    void dropEmptyStreams();
    [[nodiscard]] Fraction findOrigin() const;
    void begin(const std::string& path);
    void writeAll();

    [[nodiscard]] bool readOne();
    [[nodiscard]] PacketHandle readOrEnd();
    void closeAll();
    void writeWaiting(CopiedStream& stream, int number);
    [[nodiscard]] bool arePast() const;
    [[nodiscard]] CopiedStream* leader();
    [[noreturn]] void refuseBeginning(const KeysAround& keys) const;
    void tellProgress();

    Source source;
    std::string name;
    const ClipContainer& container;
    const ClipCopierOptions& options;
    const CopyProgressCallback* callback = nullptr;

    CopySetting setting;
    std::optional<CopyInput> input;
    std::list<CopiedStream> streams; ///< in the order of the clip
    std::optional<ClipMuxer> muxer;
    bool atEnd = false;
    bool ordered = false; ///< whether an index gives times
    bool reads = false;   ///< whether a packet came
    Fraction latest{0};   ///< seconds, of any packet read
    int64_t waitingBytes = 0;
    unsigned calls = 0;
    CopiedClip copied;
};

} // namespace tio::ffmpeg::detail
