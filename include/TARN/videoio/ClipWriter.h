#pragma once

#include <TARN/core/Mat.h>
#include <TARN/core/Rational.h>
#include <TARN/videoio/ByteSink.h>
#include <TARN/videoio/ClipRefusal.h>
#include <TARN/videoio/ClipWriterOptions.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/Image.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tio::ffmpeg {

/// Writes a clip that gives back what was given: every picture at its time, every sample, in the
/// colours that they were given in.
///
/// The name says the container: `.mp4`, `.m4v`, `.mov`, `.mkv`, `.webm`; for sound alone also
/// `.m4a`, `.wav`, `.flac`, `.mka`.
///
/// Times are exact fractions of seconds. MP4 and MOV count in ticks, at most 2^31 - 1 a second; the
/// tick is the time base, or what holds all the times that came. Matroska and WebM count
/// milliseconds: there times are rounded to the nearest. A picture lasts until the next one begins,
/// the last one as long as is asked for, else as the one before.
///
/// What comes out of the encoders is kept in unnamed files in the clip's folder until finish(),
/// which knows all the times and writes the clip; so pictures and sound may come in any order, a
/// whole track at a time if need be, and the folder needs room for the clip twice. The file gets
/// its name when it is complete; until then one that was there before stays. In fragments
/// (ClipWriterOptions::fragmented) nothing is kept: what is complete is written out. There pictures
/// and sound may begin at most 10 s apart in what is written first.
///
/// @code
/// tio::ffmpeg::ClipWriterOptions options;
/// options.rate = tio::Rational<1, int64_t>(30000, 1001);
/// tio::ffmpeg::ClipWriter clip("clip.mp4", options);
/// for (const tio::ffmpeg::Image& picture : pictures)
///     clip.writePicture(picture);
/// clip.finish();
/// @endcode
/// Thread rule: used by one thread at a time; different writers may be used side by side. Threads
/// of its own are the encoder's.
///
/// A writer belongs to the process that made it: in a forked one its calls are refused, and its
/// destructor touches neither the encoders nor the file.
class TARN_VIDEOIO_API ClipWriter {
public:
    using Time = tio::Rational<1, int64_t>; ///< seconds

    /// Checks all options, then makes an empty file under a hidden name beside `path`.
    /// @throws ClipRefusal for options that are not possible, alone or together
    /// @throws tio::ffmpeg::Exception for a folder that is missing or cannot be written to, and for
    ///         a file that is there and is to stay
    explicit ClipWriter(const std::string& path, const ClipWriterOptions& options = {});

    /// Writes into a stream of the caller's, from its beginning: in fragments as they come, else
    /// all at once in finish().
    /// @param sink  not null
    /// @param name  tells the container as a path does, and the clip in messages
    /// @throws ClipRefusal as above
    ClipWriter(std::shared_ptr<ByteSink> sink, const std::string& name,
               const ClipWriterOptions& options = {});

    /// Removes an unfinished clip, except fragments that were written.
    ~ClipWriter();
    ClipWriter(ClipWriter&& other) noexcept;
    ClipWriter& operator=(ClipWriter&& other) noexcept;
    ClipWriter(const ClipWriter&) = delete;
    ClipWriter& operator=(const ClipWriter&) = delete;

    /// Adds a picture. The first one decides on the size of all, and on how they are stored. Its
    /// pixels are read before the call returns.
    /// @param time      when it is shown, in seconds; later than the picture before
    /// @param duration  how long, in seconds, should it be the last one
    /// @throws TimeRefusal, ClipRefusal  for a time, a size, a plane or a sample above the depth of
    ///         its format that cannot be written; nothing has changed
    /// @throws tio::ffmpeg::Exception  with the file's name, when the encoder or the disk fails. An
    ///         encoder that does not take the picture leaves the writer as it was; after any other
    ///         failure all calls fail
    void writePicture(const ConstImageView& picture, Time time,
                      std::optional<Time> duration = std::nullopt);
    void writePicture(const Image& picture, Time time, std::optional<Time> duration = std::nullopt);

    /// Adds a picture at the end of the one before, where that has a duration, and else 1 / rate
    /// after it; the first one at 0.
    /// @throws as above; ClipRefusal without a rate where the picture before has no duration
    void writePicture(const ConstImageView& picture);
    void writePicture(const Image& picture);

    /// The same, with how long it lasts, in seconds.
    void writePicture(const ConstImageView& picture, std::nullopt_t, Time duration);
    void writePicture(const Image& picture, std::nullopt_t, Time duration);

    /// Adds sound after what came before, 1.0 being full scale.
    /// @param samples   `count` times `channels` values, those of one time side by side
    /// @param time      when the first sample of all is heard, in seconds: a whole number of
    ///                  samples, 0 by default, for the first block alone
    /// @throws TimeRefusal, ClipRefusal, tio::ffmpeg::Exception  as writePicture()
    void writeSamples(const float* samples, std::size_t count, int channels,
                      std::optional<Time> time = std::nullopt);

    /// The same from a matrix with a row for each sample and a column for each channel.
    void writeSamples(const Mat<float, 2>& samples, std::optional<Time> time = std::nullopt);

    /// Completes the clip and gives it its name. Calls after it do nothing. A track exists for
    /// what was written: where no sound came, the clip has none, whatever the options announced.
    /// @throws ClipRefusal when there is neither picture nor sound
    /// @throws tio::ffmpeg::Exception with the file's name when something does not reach the disk;
    ///         there is no clip then, and what had its name before is still there
    void finish();

private:
    class Core;
    std::unique_ptr<Core> core;
};

} // namespace tio::ffmpeg
