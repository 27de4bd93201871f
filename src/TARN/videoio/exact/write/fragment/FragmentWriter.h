#pragma once

#include "base/handles.h"
#include "exact/write/ClipMuxer.h"
#include "exact/write/clipPlan.h"
#include "exact/write/fragment/FragmentTimes.h"

#include <TARN/videoio/ByteSink.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tio::ffmpeg::detail {

/// Writes a clip while it grows: what the encoders give, in fragments that begin with a key
/// picture.
class FragmentWriter {
public:
    /// @param sink       takes the file
    /// @param onWritten  is called when the first fragment has been written
    FragmentWriter(const ClipPlan& plan, const ClipWriterOptions& options, const ClipTimes& times,
                   std::shared_ptr<ByteSink> sink, std::function<void()> onWritten,
                   std::string clip);

    /// @name The encoders, when they are open; null for one that is gone
    /// @{
    void openPictures(const AVCodecContext* encoder) { pictures.encoder = encoder; }
    void openSound(const AVCodecContext& encoder, const Fraction& begin);
    /// @}

    /// Whether the next picture has to be a key picture.
    /// @param time  of it, in seconds
    [[nodiscard]] bool wantsKey(const Fraction& time) const;

    /// Notes that the encoder has taken a picture.
    void note(const Fraction& time, bool key, bool afterPause);

    /// Refuses what would have to wait for too much of the other kind.
    /// @param until  seconds that pictures, or sound, reach then
    /// @throws ClipRefusal
    void requirePicturesMayWait(const Fraction& until) const;
    void requireSoundMayWait(const Fraction& until) const;

    /// @param packet  its pts is the number of its picture; it is blank after that
    void addPicture(AVPacket& packet);

    /// Those that came.
    [[nodiscard]] int64_t pictureCount() const noexcept { return pictures.taken; }

    /// @param packet  its pts counts samples from the first one of all; it is blank after that
    void addSound(AVPacket& packet);

    /// Writes what waits, and completes the file.
    void finish();

private:
    struct Queue {
        const AVCodecContext* encoder = nullptr;
        std::deque<PacketHandle> packets;
        int stream = -1;
        int64_t taken = 0; ///< packets that came
        int64_t given = 0; ///< packets that were written
    };

    [[nodiscard]] bool mayBegin() const;
    void begin(bool last);
    void writeGroup(bool last);
    void writeFragment(std::deque<PacketHandle> group, bool last);
    [[nodiscard]] bool isSoundFirst(const std::deque<PacketHandle>& group) const;
    [[nodiscard]] int64_t soundLength() const;
    [[nodiscard]] PacketHandle keep(AVPacket& packet) const;

    const ClipPlan& plan;
    const ClipWriterOptions& options;
    const ClipTimes& times;
    std::shared_ptr<ByteSink> sink;
    std::function<void()> onWritten;
    std::string name;

    SinkChannel channel;
    ClipMuxer muxer; ///< gone before its channel is
    std::optional<FragmentTimes> shown;
    Queue pictures;
    Queue sound;
    int64_t soundBegin = 0; ///< in samples
    bool begun = false;
    bool written = false;
    std::optional<Fraction> lastKey; ///< that was asked for
    Fraction lastTime{0};
    std::deque<int64_t> pauses; ///< pictures after them
    std::deque<int64_t> groups; ///< packets with which the waiting groups begin
};

} // namespace tio::ffmpeg::detail
