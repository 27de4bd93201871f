#pragma once

#include <TARN/core/Exception.h>
#include <TARN/videoio/Export.h>

#include <cstdint>
#include <functional>
#include <optional>

namespace tio::ffmpeg {

/// How far the making of an index has come.
struct IndexProgress {
    enum class Step {
        Packets,  ///< reading the file; counted in bytes
        Pictures, ///< decoding it; counted in packets
        Samples,  ///< decoding its sound; counted in packets
    };

    Step step;
    int64_t done;
    int64_t total; ///< 0 when it is not known
};

/// Called every now and then while an index is made; returns whether to go on.
using IndexProgressCallback = std::function<bool(const IndexProgress&)>;

/// The progress callback asked to stop.
class TARN_VIDEOIO_API IndexingCancelled : public tio::Exception {
public:
    IndexingCancelled();
    IndexingCancelled(const IndexingCancelled&) = default;
    IndexingCancelled& operator=(const IndexingCancelled&) = default;
    ~IndexingCancelled() override;
};

/// How an index is made.
/// Thread rule: a value; the callback is called in the thread that makes the index.
struct FrameIndexOptions {
    /// Decodes the whole stream once and keeps a checksum of every picture, by which a FrameReader
    /// proves what it delivers.
    bool checksums = false;

    /// Threads of FFmpeg's decoder; 0 for one per core. A damaged stream is decoded with one
    /// whatever is said here, because only then its pictures are the same each time.
    int threads = 0;

    IndexProgressCallback progress; ///< may be empty

    /// The stream, by its number in the container; without one the best video stream, which an
    /// attached picture (a cover) is only where there is no other.
    std::optional<int> stream;
};

} // namespace tio::ffmpeg
