#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/Packet.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

struct AVCodec;
struct AVCodecContext;
struct AVCodecParameters;
struct AVDictionary;
struct AVFrame;

namespace tio::ffmpeg {

/// The engine under the video and audio packet encoders: frames go in one at a time, packets come
/// out, none or several for each.
///
/// Packets refer to the encoder's codec parameters, so the encoder must outlive them. After flush()
/// no frame may follow. (A `ClipWriter` has no packets that must be outlived.)
/// Thread rule: used by one thread at a time; FFmpeg encodes on threads of its own.
class TARN_VIDEOIO_API PacketEncoder {
public:
    PacketEncoder(const PacketEncoder&) = delete;
    PacketEncoder& operator=(const PacketEncoder&) = delete;
    /// Packets that flush() has not fetched are lost, without an error.
    virtual ~PacketEncoder();

    /// Says that no frame follows and returns every packet that the encoder still holds.
    /// @throws tio::ffmpeg::Exception when encoding fails, and the second time it is called;
    ///         packets that came out before in the same call are lost then
    std::vector<OutputPacket> flush();

    /// The time base: frame times are truncated toward zero to multiples of it, packets count in
    /// it.
    [[nodiscard]] Rational getUnitTime() const noexcept { return timeBase; }

    /// What every packet carries; as long as the encoder.
    [[nodiscard]] const AVCodecParameters& getCodecParameters() const noexcept {
        return *codecParameters;
    }

    /// The encoder for a codec, which is FFmpeg's.
    /// @throws tio::Exception "Could not find ffmpeg's h264 encoder", whichever was asked for
    [[nodiscard]] static const AVCodec* findEncoder(AVCodecID codecId);

    /// Sets an entry of an options dictionary, which stays the caller's and is made when it is
    /// null; flags as for av_dict_set.
    /// @throws tio::ffmpeg::Exception when memory runs out
    static void setOption(AVDictionary** dictionary, const char* key, const char* value, int flags);

    /// @name For subclasses, which fill the frame
    /// @{

    /// Sets the frame's time, truncated toward zero to a multiple of the time base. One whose ticks
    /// do not fit into 64 bits wraps around. (A `ClipWriter` refuses what it cannot keep.)
    /// @throws tio::Exception after flush()
    void setFrameTime(Rational time);

    /// The frame's time in seconds; minus one tick before the first.
    /// @throws tio::Exception after flush()
    [[nodiscard]] Rational getFrameTime() const;

    /// Encodes the frame at a time, or at the one that it has.
    /// @throws tio::ffmpeg::Exception when encoding fails
    std::vector<OutputPacket> encodeFrameAt(Rational time);
    std::vector<OutputPacket> encodeFrame();

    /// @}

protected:
    /// Finds the encoder and allocates its context; the subclass sets the codec's own fields and
    /// then calls openCodec().
    /// @throws tio::Exception "Could not find ffmpeg's h264 encoder", whichever was asked for
    PacketEncoder(Rational timeBase, AVCodecID codecId);

    /// Opens the encoder. Takes over `options`, whose unknown entries are ignored; "bitrate" sets
    /// the rate control to that many bits per second, give or take a half.
    /// @throws std::invalid_argument, std::out_of_range for a "bitrate" that is no number
    /// @throws tio::ffmpeg::Exception when the encoder refuses its settings
    void openCodec(AVDictionary* options);

    AVFrame* frame = nullptr; ///< allocated by the subclass, freed by flush()
    AVCodecContext* codecContext = nullptr;
    AVCodecParameters* codecParameters = nullptr;
    Rational timeBase;
    std::shared_ptr<std::vector<uint8_t>> extradata; ///< shared with every packet

    /// @throws tio::Exception after flush()
    void requireFrame() const;

private:
    void setBitrate(const char* value);
    std::deque<OutputPacket> receivePackets();
    [[nodiscard]] OutputPacket takePacket(AVPacket& packet);
    void giveVideoDuration(AVPacket& packet);

    // For the duration of the next packet:
    int64_t lastPacketDts;
    int64_t lastDistance = 0;      // from the packet before the last; 0 until there were two
    std::deque<int64_t> sentTimes; // of frames whose packets have not come out
};

} // namespace tio::ffmpeg
