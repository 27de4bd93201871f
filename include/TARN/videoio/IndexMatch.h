#pragma once

namespace tio::ffmpeg {

/// What an index is to a clip.
/// Thread rule: a value.
enum class IndexMatch {
    Fresh,   ///< the index of this clip as it is
    Stale,   ///< the clip has been changed since, but begins or ends as it did
    Foreign, ///< the index of another clip, or of another stream, or no index at all
    Corrupt, ///< an index file that was damaged
};

} // namespace tio::ffmpeg
