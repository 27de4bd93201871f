#pragma once

#include <TARN/videoio/FrameIndexOptions.h>

namespace tio::ffmpeg {

/// How the index of a sound stream is made.
/// Thread rule: a value; the callback is called in the thread that makes the index.
struct SampleIndexOptions {
    /// FFmpeg's number of the stream; -1 for the one that FFmpeg rates best.
    int stream = -1;

    /// Decodes the whole stream once and keeps a checksum of what each packet gives, by which a
    /// SampleReader proves what it delivers.
    bool checksums = false;

    /// Threads of FFmpeg's decoder; 0 for one per core. Few sound codecs have a use for more than
    /// one, and each place that is jumped to costs starting them.
    int threads = 1;

    IndexProgressCallback progress; ///< may be empty
};

} // namespace tio::ffmpeg
