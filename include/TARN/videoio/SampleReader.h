#pragma once

#include <TARN/core/Mat.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/SampleIndex.h>
#include <TARN/videoio/Source.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tio::ffmpeg {

/// How a SampleReader reads. The defaults suit most; a caller names what differs.
struct SampleReaderOptions {
    /// FFmpeg's number of the stream; -1 for that of the index, or else the one that FFmpeg rates
    /// best.
    int stream = -1;

    /// Made before; without one the reader makes it. It has to be of the same clip and stream.
    std::optional<SampleIndex> index;

    /// Proves all samples by checksums. Where the index has none, the whole stream is decoded once
    /// for them. What a decoder that starts in mid-stream does not give as one from the start does
    /// is then decoded from the start.
    bool checksums = false;

    /// Threads of FFmpeg's decoder; 0 for one per core. Few sound codecs have a use for more than
    /// one, and each place that is jumped to costs starting them.
    int threads = 1;

    IndexProgressCallback progress; ///< of making the index; may be empty
};

/// The sound of a clip by sample number or time, in any order.
///
/// @code
/// tio::ffmpeg::SampleReader reader("clip.mp4");
/// auto second = reader.readSamples(10 * reader.sampleRate(), reader.sampleRate());
/// float firstOfLeft = second(0, 0);
/// @endcode
///
/// Sample n is the n-th sample of each channel that comes out when the stream is decoded from start
/// to end, without priming and padding, as `ffmpeg -f f32le` gives it; the reader gives exactly
/// these bits, or throws, whatever the order of the calls. It goes on decoding where the samples
/// lie ahead, and else starts as many packets earlier as the codec needs until its state does not
/// depend on what came before. Where that is not known of a codec, the index has checksums.
///
/// One thing no reader can know without them: the noise that AAC-LC puts in place of some bands
/// depends on all that was drawn before. In a stream of more than 1000 packets, read from the
/// middle, it is other noise of the same strength, unless SampleReaderOptions::checksums makes the
/// reader start at the beginning. The dither of AC-3 is exact: such an index has checksums anyway.
///
/// Numbers are floats, 1 is full scale and 0 is silence, whatever the clip has.
/// The source has to end and to be there as long as the reader: it is opened several times. A live
/// stream cannot be read by number. A reader that was made before fork() works on in parent and
/// child.
/// Thread rule: used by one thread at a time.
class TARN_VIDEOIO_API SampleReader {
public:
    /// One row for each sample, one column for each channel, in the order of layout().
    using Samples = tio::Mat<float, 2, tio::MatOptions<1, 1>>;

    /// What the reader has done so far.
    struct Counters {
        int64_t sourceOpenings = 0;
        int64_t seeks = 0;          ///< in the source
        int64_t packetsDecoded = 0; ///< given to a decoder
    };

    /// Opens the stream, and makes the index where none is given.
    /// @throws IndexingCancelled
    /// @throws IndexMismatch for an index of another clip, or another stream, or one that has
    ///         changed since
    /// @throws tio::Exception when there is no such stream, or it is not of sound
    /// @throws tio::ffmpeg::Exception "… Could not find stream of requested type", when there is no
    ///         decoder, and what opening throws
    explicit SampleReader(const Source& source, SampleReaderOptions options = {});

    /// A reader that was moved from may only be destroyed or assigned to.
    SampleReader(SampleReader&&) noexcept;
    SampleReader& operator=(SampleReader&&) noexcept;
    ~SampleReader();

    /// @name What there is
    /// @{

    /// Samples of each channel. May change while reading when damage turns up that the packets do
    /// not show: the stream is then counted again.
    [[nodiscard]] int64_t sampleCount() const noexcept;

    /// Samples a second.
    [[nodiscard]] int sampleRate() const noexcept;
    [[nodiscard]] int channelCount() const noexcept;

    /// In FFmpeg's words, such as "mono", "stereo" or "5.1(side)".
    [[nodiscard]] const std::string& layout() const noexcept;

    /// FFmpeg's number of the stream.
    [[nodiscard]] int streamIndex() const noexcept;

    /// @}
    /// @name Times
    /// In seconds, as the container states them. Samples run from 0 to sampleCount() - 1.
    /// @throws tio::Exception for a sample or a time that there is not, and for a sample after a
    ///         change of the sample rate or layout
    /// @{

    /// Time of the first sample; 0 when there is none.
    [[nodiscard]] Rational startTime() const;

    /// From the first sample to the end of the last, gaps included.
    [[nodiscard]] Rational duration() const;

    [[nodiscard]] Rational timeOfSample(int64_t sample) const;

    /// The sample that is heard at a time: the last one whose time is not later, which in a gap is
    /// the one before the gap.
    [[nodiscard]] int64_t sampleAt(const Rational& time) const;

    /// @}
    /// @name Reading
    /// @throws tio::Exception for samples that there are not, a range that a change of the sample
    ///         rate or layout lies in or before, naming the sample where it does, and when the
    ///         source has changed
    /// @{

    /// Samples `first` to `first` + `count` - 1.
    [[nodiscard]] Samples readSamples(int64_t first, int64_t count);

    /// The same into memory of the caller's: `count` times channelCount() floats, the channels of a
    /// sample side by side. What it holds after an exception is not said.
    void readSamples(int64_t first, int64_t count, float* to);

    /// The samples with from <= time < to, as far as there are any.
    /// @throws tio::Exception also for a fraction over 0
    [[nodiscard]] Samples readSamplesBetween(const Rational& from, const Rational& to);

    /// @}

    /// The index in use: worth keeping for another reader of the same clip.
    [[nodiscard]] SampleIndex index() const;

    [[nodiscard]] Counters counters() const noexcept;

private:
    class Engine;
    std::unique_ptr<Engine> engine;
};

} // namespace tio::ffmpeg
