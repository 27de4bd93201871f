#pragma once

#include <TARN/core/Rational.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/FormatContext.h>
#include <TARN/videoio/OpenOptions.h>
#include <TARN/videoio/Packet.h>
#include <TARN/videoio/Source.h>
#include <TARN/videoio/Types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct AVPacket;

namespace tio::ffmpeg {

namespace detail {
class OpenInput;
struct InputAccess;
} // namespace detail

/// One opened media source: a local file or a URL, memory, or a stream of the caller's.
///
/// Held by std::shared_ptr and shared by every stream and decoder that reads from it. Packets of
/// all streams come from one place in the file, and a reader of one stream drops the packets of the
/// others; to read two streams side by side, open the source twice.
/// Thread rule: one context and everything built on it is used by one thread at a time.
class TARN_VIDEOIO_API InputFormatContext : public FormatContext {
public:
    /// Opens the source and reads what its streams are. A URL that begins with "rtsp://" (in lower
    /// case) is received over TCP where the server offers it, with a buffer of 4 MiB.
    /// @throws tio::ffmpeg::Exception FFmpeg's words, ": " and the URL
    explicit InputFormatContext(std::string url);

    /// The same with limits and settings.
    /// @throws tio::ffmpeg::Exception also "Opening took longer than … ms: " or "Opening was
    ///         cancelled: " and the URL
    /// @throws tio::Exception when there is no demuxer of that name, or an option is not known to
    ///         the demuxer and its protocol
    InputFormatContext(std::string url, OpenOptions options);

    /// The same for any kind of source, with the options that it was made with. What a stream of
    /// the caller's does wrong ends in an exception of the call that was reading.
    explicit InputFormatContext(const Source& source);

    /// The same as with a std::string.
    explicit InputFormatContext(const char* url) : InputFormatContext(std::string(url)) {}
    ~InputFormatContext() override;

    /// @name What the source holds
    /// @{

    /// Number of streams; stream indices run from 0 to one less.
    [[nodiscard]] int getStreamCount() const noexcept;

    /// The stream that FFmpeg rates best of its kind.
    /// @throws tio::ffmpeg::Exception "… Could not find stream of requested type"
    [[nodiscard]] int findBestVideoStreamIndex() const;
    [[nodiscard]] int findBestAudioStreamIndex() const;

    /// 1 when there is such a stream, otherwise 0: the type is int. (getTypeOfStream() gives the
    /// type of each stream.)
    [[nodiscard]] int hasVideoStream() const noexcept;
    [[nodiscard]] int hasAudioStream() const noexcept;

    /// The container; files of the whole MP4 family (QuickTime and 3GP too) count as Mp4.
    /// (getContainerName() names every container.)
    [[nodiscard]] Container getContainerFormat() const noexcept;

    /// FFmpeg's name of the demuxer, a list such as "mov,mp4,m4a,3gp,3g2,mj2".
    [[nodiscard]] std::string getContainerName() const;

    /// @}
    /// @name What one stream is
    /// `index` must name an existing stream, which is not checked, except where another answer is
    /// given.
    /// @{

    /// Knows H.264 and AAC alone. (getCodecNameOfStream() names every codec.)
    [[nodiscard]] Codec getCodecOfStream(int index) const noexcept;

    /// FFmpeg's name of the codec, such as "hevc"; "none" when it is not known.
    [[nodiscard]] std::string getCodecNameOfStream(int index) const;

    [[nodiscard]] StreamType getTypeOfStream(int index) const noexcept;

    /// What the stream's codec needs to know before the first packet, in the layout of the codec;
    /// empty where there is nothing. For H.264 see tio::videolib::extradata_to_spspps().
    [[nodiscard]] std::vector<unsigned char> getExtradataOfStream(int index) const;

    /// Duration in seconds as the container states it. Where it states none
    /// (hasDurationOfStream() is false) the value is without meaning. (Metadata::duration is empty
    /// then.)
    [[nodiscard]] Rational getDurationOfStream(int index) const noexcept;
    [[nodiscard]] bool hasDurationOfStream(int index) const noexcept;

    /// Size of a stream's pictures in pixels as they are shown: width and height change places when
    /// the "rotate" tag says exactly "90" or "270". The width comes first here, while every
    /// Vec<int, 2> of the library is (height, width). (Metadata::width and Metadata::height name
    /// them, and know every kind of turn.)
    /// @returns false, with both left as they were, when there is no such stream or nothing is
    ///          known of it
    bool getResolutionOfStream(int index, int& width, int& height) const noexcept;

    /// @}
    /// @name Reading and seeking
    /// @{

    /// Reads the next packet of one stream into `packet`, which must be blank and not null, and
    /// which the caller unreferences. Empty packets are passed over, packets of other streams are
    /// dropped.
    /// @returns false at the end of the input and also when reading fails: see getEndReason()
    /// @throws tio::ffmpeg::Exception when a stream of the caller's fails, once; then the input is
    ///         at its end until it is sought in
    bool getNextPacketForStream(AVPacket* packet, int streamIndex);

    /// Why the last packet asked for did not come; Kind::None when it did.
    [[nodiscard]] EndReason getEndReason() const;

    /// Goes to a place at or before `timestamp`, in ticks of the stream's time base.
    /// @throws tio::ffmpeg::Exception "… Seeking" when the input cannot
    void seekStreamToOrBefore(int64_t timestamp, int streamIndex);

    /// Whether the demuxer seeks by presentation time rather than by decoding time.
    [[nodiscard]] bool isPtsSeekable() const noexcept;

    /// Smallest presentation time in seconds of any packet read so far, whatever its stream;
    /// 2147483647/1 before the first one. An unknown time counts as the smallest there is: -2^63
    /// ticks.
    [[nodiscard]] Rational getEarliestTimestamp() const noexcept { return earliestTimestamp; }

    /// The URL that was opened, or the name of the source.
    [[nodiscard]] std::string getUrl() const;

    /// @}

private:
    friend struct detail::InputAccess; // by which classes of the library do more than callers may

    bool readNext(AVPacket* packet, const int* firstStream, const int* lastStream);
    void noteTimestamp(const AVPacket& packet);

    Rational earliestTimestamp;
    EndReason endReason;
    std::unique_ptr<detail::OpenInput> opened; // owns the format context
};

} // namespace tio::ffmpeg
