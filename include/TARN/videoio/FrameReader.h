#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/Frame.h>
#include <TARN/videoio/FrameDigest.h>
#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/Image.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/Source.h>
#include <TARN/videoio/Types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace tio::ffmpeg {

/// How a FrameReader reads. The defaults suit most; a caller names what differs.
struct FrameReaderOptions {
    /// Made or loaded before; without one the reader makes it. It has to be of the same stream of
    /// the same clip, or of a copy (see FrameIndex), which is looked into before anything is read.
    std::optional<FrameIndex> index;

    /// Proves every picture by a checksum. Where the index has none, the whole stream is decoded
    /// once for them.
    bool checksums = false;

    /// Threads of FFmpeg's decoder; 0 for one per core.
    int threads = 0;

    /// The stream, by its number in the container; without one the best video stream, which an
    /// attached picture (a cover) is only where there is no other.
    std::optional<int> stream;

    /// What the pictures consist of. A reader with a PixelFormat has that instead.
    PictureFormat format = PictureFormat::Rgb8;

    /// What their colours are taken for.
    Colours colours = Colours::Tagged;

    /// Size of the pictures, upright, in pixels; both 0 for their own, or neither. A smaller
    /// picture is made of the averages of areas, without one of full size between. A reader with a
    /// PixelFormat takes no size.
    int height = 0;
    int width = 0;

    /// How many bytes of finished pictures readFrames() may hold back because earlier ones were
    /// asked for first. At least one picture is held whatever is said here.
    int64_t byteBudget = int64_t{256} << 20;

    IndexProgressCallback progress; ///< of making the index; may be empty
};

/// The pictures of a video by number or time, in any order.
///
/// @code
/// tio::ffmpeg::FrameReader reader(tio::ffmpeg::Source("clip.mp4"));
/// auto last = reader.readFrame(reader.frameCount() - 1).image;
/// reader.readFrames({900, 30, 31}, [](const auto& picture) { …; return true; });
/// @endcode
///
/// Frame n is the n-th picture that comes out when the stream is decoded from start to end, and
/// readFrame(n) gives that picture or throws; it never gives another. Pictures are identified by
/// the packet that they come from, not by times, so that missing, repeated or wrapped times do no
/// harm, and packets by their content, so that it does no harm either when a container leads
/// elsewhere. The reader goes on decoding where the frame lies ahead, and else starts at the key
/// frame before it; what comes out on the way is neither turned nor converted, and pictures that no
/// other needs are not even decoded. Where the frame does not come out, it starts a key frame
/// earlier, and in the end decodes the stream from its start.
///
/// What no reader can know without having decoded the whole stream is whether a decoder that starts
/// in mid-stream gives the same picture as one that did not: key frames may be flagged wrongly, and
/// damage spreads. With checksums that is checked for each picture.
///
/// Pictures are upright in all eight ways that a display matrix can state, and in the colours that
/// each is tagged with. The image that a caller gets is the caller's own: nothing that is done to
/// its pixels shows in any other, nor in that of the same frame asked for again.
///
/// The source has to end and to be there once more: it is opened again. A live stream cannot be
/// read by number.
///
/// A reader that was made before fork() works on in the parent and in every child: each notices
/// that it is another process, leaves the decoder of the other alone, whose memory it does not give
/// back, and opens its own. No other thread may be in a call of the reader during fork().
/// Thread rule: used by one thread at a time.
class TARN_VIDEOIO_API FrameReader {
public:
    /// How sure it is that a picture is the right one.
    enum class Reached {
        Exact,           ///< decoded from the key frame before it
        ExactAfterRetry, ///< decoded from an earlier one, since it did not come out at first
        Linear,          ///< decoded from the start of the stream
        Proven,          ///< its checksum is that of the decoding from start to end
    };

    /// One picture and what it is.
    struct Picture {
        Image image; ///< empty where the reader has a PixelFormat, or wrote into given memory
        std::shared_ptr<tio::FrameBase> frame; ///< of a reader with a PixelFormat; else empty
        int64_t number = 0;
        Rational time;     ///< at which it is shown, in seconds
        Rational duration; ///< for which it is shown
        Rational unitTime; ///< one tick of the stream, in seconds
        Reached reached = Reached::Exact;
        bool keyFrame = false;   ///< see isKeyFrame()
        char type = '?';         ///< how it is coded: 'I', 'P', 'B' or another letter of FFmpeg's
        bool interlaced = false; ///< whether it consists of two fields
        bool topFieldFirst = false; ///< which of them is shown first
    };

    /// Receives pictures; returns whether to go on.
    using Callback = std::function<bool(const Picture&)>;

    /// Where a picture goes, by its place in the list of frames asked for.
    using PlaceCallback = std::function<ImageView(std::size_t place)>;

    /// Receives word of what is written; returns whether to go on.
    using WrittenCallback = std::function<bool(std::size_t place, const Picture&)>;

    /// The frames `first` to `stop` - 1.
    struct Range {
        int64_t first = 0;
        int64_t stop = 0;
    };

    /// What the reader has done so far.
    struct Counters {
        int64_t sourceOpenings = 0;
        int64_t seeks = 0;             ///< in the source
        int64_t packetsDecoded = 0;    ///< given to the decoder
        int64_t picturesDecoded = 0;   ///< that came out of it
        int64_t picturesConverted = 0; ///< that were turned and converted, once for each reading
    };

    /// Opens the source, and makes the index where none is given.
    /// @throws IndexingCancelled
    /// @throws IndexMismatch for an index of another clip, or another stream, or one that has
    ///         changed since
    /// @throws tio::Exception for options that do not fit: a format or size that does not exist, a
    ///         stream that is not there or no video
    /// @throws tio::ffmpeg::Exception "… Could not find stream of requested type", and what opening
    ///         throws
    explicit FrameReader(const Source& source, FrameReaderOptions options = {});

    /// The same from an input, which stays free for other readers, with pictures as the stream
    /// decoders give them (Picture::frame). Where those take the colours for what they are and turn
    /// the pictures right, the pictures are theirs bit for bit.
    /// @throws IndexingCancelled
    /// @throws IndexMismatch as above
    /// @throws tio::ffmpeg::Exception "… Could not find stream of requested type", and what opening
    ///         throws
    FrameReader(const std::shared_ptr<InputFormatContext>& input, PixelFormat format,
                FrameReaderOptions options = {});

    /// A reader that was moved from may only be destroyed or assigned to.
    FrameReader(FrameReader&&) noexcept;
    FrameReader& operator=(FrameReader&&) noexcept;
    ~FrameReader();

    /// @name What there is
    /// Frame numbers run from 0 to frameCount() - 1.
    /// @throws tio::Exception for a number or a time without a frame
    /// @{

    /// May change when a picture turns out damaged that the index says nothing of: the stream is
    /// then counted again with one thread, as every damaged stream is.
    [[nodiscard]] int64_t frameCount() const noexcept;

    /// When a frame is shown, in seconds. The container's time of its packet; where a packet has
    /// none, the usual distance after the frame before.
    [[nodiscard]] Rational frameTime(int64_t frame) const;

    /// For how long: up to the next frame.
    [[nodiscard]] Rational frameDuration(int64_t frame) const;

    /// Whether its packet is flagged as one from which decoding can start.
    [[nodiscard]] bool isKeyFrame(int64_t frame) const;

    /// The frame that is on screen at a time: the last one whose time is not later. The last frame
    /// stays for its duration.
    [[nodiscard]] int64_t frameNumberAt(const Rational& time) const;

    /// What times are counted in, in seconds: those of all frames are multiples of it.
    [[nodiscard]] Rational timeBase() const noexcept;

    /// The time of each frame, as a multiple of timeBase().
    [[nodiscard]] std::vector<int64_t> ticks() const;

    /// The numbers of all key frames, rising.
    [[nodiscard]] std::vector<int64_t> keyFrames() const;

    /// Number of the stream in the container.
    [[nodiscard]] int stream() const noexcept;

    /// Size of the first picture, upright, or the size asked for. Others may have another one.
    [[nodiscard]] int height() const noexcept;
    [[nodiscard]] int width() const noexcept;

    /// @}
    /// @name Reading
    /// @throws tio::Exception for a number or a time without a frame, and when the picture cannot
    ///         be reached, or the source has changed
    /// @{

    [[nodiscard]] Picture readFrame(int64_t frame);
    [[nodiscard]] Picture readFrameAt(const Rational& time);

    /// Reads a frame straight into memory of the caller's, in which nothing outside of its rows is
    /// touched. Picture::image stays empty.
    /// @throws tio::Exception also where the memory is not for such a picture, or the reader has a
    ///         PixelFormat
    Picture readFrameInto(int64_t frame, const ImageView& memory);

    /// The same for several frames, in any order and as often as each is named. Each group of
    /// pictures is decoded once; what comes first is written first, whatever its place.
    /// @param memory   asked for the memory of each place, once, before anything is written
    /// @param written  called for each place that is done; may be empty
    /// @throws also what the two throw
    void readFramesInto(const std::vector<int64_t>& frames, const PlaceCallback& memory,
                        const WrittenCallback& written = {});

    /// Reads several frames, in any order and as often as each is named, and hands them over in the
    /// order asked for. As long as what has to wait for its turn stays within the byte budget, each
    /// group of pictures is decoded once.
    /// @throws also what `callback` throws
    void readFrames(const std::vector<int64_t>& frames, const Callback& callback);

    /// The frames `first`, first + step, … up to and without `end`; with a negative step downward.
    /// @throws tio::Exception also for a step of 0
    void readFrames(int64_t first, int64_t end, int64_t step, const Callback& callback);

    /// @}

    /// @name Parts of the clip
    /// To be read one by one, in any order, by several readers on several machines.
    /// @{

    /// All frames in at most `count` ranges, rising, that begin where decoding can begin and cost
    /// about the same: the most expensive one as little as it can. What a range costs is how many
    /// packets have to be decoded for it, those included whose pictures lie in other ranges. Places
    /// that were found to be no good to begin at, while reading with this index, are known.
    /// @throws tio::Exception for a count below 1
    [[nodiscard]] std::vector<Range> partitions(int64_t count) const;

    /// Decodes the frames `first` to `end` - 1 and returns their digest, which is that of the whole
    /// clip when those of its parts are put together in order. It has nothing to do with the
    /// format, the colours or the size that the reader gives.
    /// @throws tio::Exception for frames that there are not, and what reading throws
    [[nodiscard]] FrameDigest digest(int64_t first, int64_t end);

    /// @}

    /// The index in use, with what was learned of it while reading: worth saving.
    [[nodiscard]] FrameIndex index() const;

    [[nodiscard]] Counters counters() const noexcept;

private:
    class Engine;
    std::unique_ptr<Engine> engine;
};

} // namespace tio::ffmpeg
