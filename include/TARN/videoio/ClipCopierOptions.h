#pragma once

#include <TARN/core/Exception.h>
#include <TARN/core/Rational.h>
#include <TARN/videoio/ClipWriterOptions.h>
#include <TARN/videoio/Export.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tio::ffmpeg {

/// How far a copying has come.
struct CopyProgress {
    int64_t bytes;   ///< of the source, read so far
    int64_t total;   ///< 0 when it is not known
    int64_t packets; ///< written so far
};

/// Called every now and then while a clip is copied; returns whether to go on.
using CopyProgressCallback = std::function<bool(const CopyProgress&)>;

/// The progress callback asked to stop.
class TARN_VIDEOIO_API CopyingCancelled : public tio::Exception {
public:
    CopyingCancelled();
    CopyingCancelled(const CopyingCancelled&) = default;
    CopyingCancelled& operator=(const CopyingCancelled&) = default;
    ~CopyingCancelled() override;
};

/// What is copied, and how it is written.
/// Thread rule: a value.
struct ClipCopierOptions {
    /// Numbers in the source, in the order in which they are written. Empty: all pictures and all
    /// sound, and those subtitles that the container can hold; covers are left out.
    std::vector<int> streams;

    /// @name The range, in seconds of the source
    /// @{
    /// Where it begins: a time at which the first of the streams with pictures has a key picture,
    /// since nothing else can be shown without those before it. Pictures that are decoded after it
    /// and shown before are left out. Sound begins with its first packet from there on.
    std::optional<tio::Rational<1, int64_t>> from;
    /// Where it ends: all that is shown before is there. Pictures that these need may follow.
    std::optional<tio::Rational<1, int64_t>> to;
    /// @}

    /// AsGiven: times are those of the source. First: what is shown or heard first is at 0; where
    /// that is sound, at less than a tick of the pictures after it, so that their times stay exact.
    ClipOrigin origin = ClipOrigin::AsGiven;
    bool keepTurn = true; ///< whether players are told to turn and mirror, as the source tells them

    /// Whether a source that breaks off, as a connection does, leaves a clip of what came before.
    /// CopiedClip::failure says so then. Otherwise run() throws, and there is none.
    bool keepBeginning = false;

    bool overwrite = true; ///< whether a file of that name may be replaced
    bool faststart = true; ///< MP4 and MOV: the index comes before the media data
};

/// What became of a copying.
struct CopiedClip {
    std::vector<int> streams; ///< numbers in the source, in the order of the new clip
    std::vector<int> leftOut; ///< not chosen, or without a single packet
    int64_t packets = 0;

    /// Pictures that are shown although they are outside the range, or hidden in the source after
    /// those that are shown: others that are shown need them.
    int64_t extraPictures = 0;

    /// Why the source could not be read to its end, with `keepBeginning`; otherwise empty.
    std::string failure;
};

} // namespace tio::ffmpeg
