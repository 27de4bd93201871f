#pragma once

#include <TARN/core/Rational.h>
#include <TARN/videoio/ClipCopierOptions.h>
#include <TARN/videoio/ClipRefusal.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/Source.h>

#include <cstdint>
#include <memory>
#include <string>

namespace tio::ffmpeg {

/// Copies a clip without decoding it: the same packets in another container, or a part of them.
///
/// The name says the container, as for ClipWriter. Times, durations, turn and mirror, colours,
/// aspect of pixels, languages, titles and chapters are those of the source, as far as the
/// container has a place for them. MP4 and MOV hold the times of pictures in the ticks of the
/// source, those of sound to the nearest sample; Matroska and WebM to the nearest millisecond.
///
/// Where a source has no times, or none for reordered pictures, as raw H.264 or AVI, it is indexed
/// first (FrameIndex), and its pictures follow each other at the rate of the stream. Where times
/// start over, as in transport streams that were joined, the next part follows the one before.
///
/// Pictures that an edit list of MP4 hides in front, because decoding begins there, stay hidden.
///
/// The file gets its name when it is complete; until then one that was there before stays.
///
/// @code
/// tio::ffmpeg::ClipCopier("phone.mov", "clip.mp4").run();
/// @endcode
/// Thread rule: used by one thread at a time; different ones may be used side by side.
class TARN_VIDEOIO_API ClipCopier {
public:
    using Time = tio::Rational<1, int64_t>; ///< seconds

    /// Opens the source, checks what was asked for, and reads up to the beginning of the range.
    /// @throws ClipRefusal for what is not possible: a stream that the container cannot hold, with
    ///         those containers that can; the source as its own copy; …
    /// @throws TimeRefusal where no key picture stands at `from`, with the nearest that does
    /// @throws tio::Exception, tio::ffmpeg::Exception  as opening an InputFormatContext, and for a
    ///         folder that is missing or a file that is there and is to stay
    ClipCopier(const Source& source, const std::string& path,
               const ClipCopierOptions& options = {});

    /// Removes an unfinished clip.
    ~ClipCopier();
    ClipCopier(ClipCopier&& other) noexcept;
    ClipCopier& operator=(ClipCopier&& other) noexcept;
    ClipCopier(const ClipCopier&) = delete;
    ClipCopier& operator=(const ClipCopier&) = delete;

    /// Copies everything and gives the clip its name. Once; whatever it throws, the name is that of
    /// what was there before.
    /// @throws CopyingCancelled when `progress` returns false; what it throws itself comes through
    /// @throws ClipRefusal when it is called again, or the container cannot hold the times
    /// @throws tio::Exception, tio::ffmpeg::Exception  with the name of the source or of the clip
    CopiedClip run(const CopyProgressCallback& progress = {});

private:
    class Core;
    std::unique_ptr<Core> core;
};

} // namespace tio::ffmpeg
