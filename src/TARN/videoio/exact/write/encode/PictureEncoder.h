#pragma once

#include "base/handles.h"
#include "exact/write/encode/ImageToFrame.h"
#include "exact/write/fractions.h"

#include <TARN/videoio/ClipWriterOptions.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <string>

namespace tio::ffmpeg::detail {

/// Takes each packet of an encoder. Its pts is the number of its picture.
using PacketSink = std::function<void(AVPacket&)>;

/// Encodes pictures of one size. The encoder hears of times only as much as it needs to share out
/// its bits: what comes out is known by the number of the picture that went in.
class PictureEncoder {
public:
    /// @param first     decides on size and pixels
    /// @param duration  of the first picture in seconds, where it is known: a hint
    /// @param inOrder   packets are to come in the order of the pictures, if no option says
    /// otherwise
    /// @throws ClipRefusal for a size that the codec cannot take, with those that it can
    /// @throws tio::ffmpeg::Exception when it does not open
    PictureEncoder(const AVCodec& codec, const ClipWriterOptions& options,
                   const ConstImageView& first, std::optional<Fraction> duration, bool inOrder,
                   std::string path);

    /// @throws ClipRefusal for another size
    void requireSize(const ConstImageView& picture) const;

    /// Hands a picture to the encoder; drain() has to follow. Where this throws, nothing was taken.
    /// @param time  of the picture in seconds
    /// @param key   whether decoding has to be able to begin here
    void submit(const ConstImageView& picture, const Fraction& time, bool key);

    /// Passes on what the encoder has ready.
    void drain(const PacketSink& sink);

    /// Passes on all that the encoder still holds.
    void flush(const PacketSink& sink);

    /// Open encoder, for a stream's parameters.
    [[nodiscard]] const AVCodecContext& codec() const { return *context; }

private:
    void open(const ClipWriterOptions& options, std::optional<Fraction> duration);
    void requireSizeOfCodec(const ConstImageView& picture) const;
    [[nodiscard]] int64_t nextTick(const Fraction& time);
    [[nodiscard]] int64_t numberOf(int64_t tick);

    struct Pending {
        int64_t tick;
        int64_t number;
    };

    std::string name;
    CodecContextHandle context;
    ImageToFrame converter;
    std::optional<Fraction> start;
    std::deque<Pending> pending; ///< pictures that are in the encoder
    bool countsAlone = false;    ///< ticks are numbers of pictures
    int64_t lastTick = -1;
    int64_t taken = 0;
};

} // namespace tio::ffmpeg::detail
