#pragma once

#include "media/Input.h"
#include "media/SeekPlan.h"

#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tio::tool {

/// The pictures of a clip by frame number, asked for in increasing order.
///
/// It reads on where the next wanted frame is near. From the first one on that is not, or of which
/// plain reading gives nothing because it has no time, a FrameReader takes over. With a bare
/// seeking index it seeks instead where that saves decoding and leads to a key frame. Frame n is
/// the n-th picture of a plain reading from the start all the same: what takes over has to give the
/// picture read last its right time, and what a seek leads to has to have the time that the index
/// gives its number. Where one of these fails, or the clip cannot be sought in, the rest is counted
/// from the start.
class FrameWalker {
public:
    using Picture = ffmpeg::VideoPacketDecoder::Frame;
    using Warn = std::function<void(const std::string&)>;

    /// @param warn  told, at most once, why seeking was given up
    /// @throws Failure naming the clip, or the index file
    FrameWalker(InputOptions input, Warn warn);

    /// Frame `number`, larger than in every call before; without a picture when there is none.
    /// @throws Failure naming the clip and the frame that cannot be read
    [[nodiscard]] Picture read(int64_t number);

    /// Number of frames: from the index where that agrees with reading, otherwise by reading all of
    /// them. Reading then begins anew, so that every frame may be asked for.
    /// @throws Failure naming the clip and the frame that cannot be read
    [[nodiscard]] int64_t countFrames();

    /// Number of frames, once it is known: from the index, if one is in use, or because the end of
    /// the clip has been reached.
    [[nodiscard]] std::optional<int64_t> frameCount() const;

private:
    void restart();
    Picture readNext();
    void openFrames(const std::optional<ffmpeg::FrameIndex>& index);
    [[nodiscard]] bool prepareFrames(int64_t number);
    [[nodiscard]] bool framesGoOn() const;
    [[nodiscard]] Picture readExactly(int64_t number);
    [[nodiscard]] bool seekPays(int64_t number);
    [[nodiscard]] bool preparePlan();
    [[nodiscard]] Picture jumpTo(int64_t number);
    void giveUpSeeking(const std::string& reason);

    InputOptions input;
    Warn warn;
    std::unique_ptr<ffmpeg::VideoStreamDecoder> decoder;
    int64_t nextNumber = 0;                      // of the picture that the decoder gives next
    ffmpeg::Rational lastTime;                   // of the picture that it gave last
    bool atEnd = false;                          // nextNumber is the number of frames
    std::unique_ptr<ffmpeg::FrameReader> frames; // once it has taken over
    ffmpeg::Rational unitTime;                   // seconds per tick, for the pictures it gives
    bool bareIndex = false;                      // one was given: it is followed instead
    std::unique_ptr<SeekPlan> plan;
    bool planTrusted = false; // it has agreed with a picture read from the start
    bool maySeek = true;
};

} // namespace tio::tool
