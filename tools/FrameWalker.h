#pragma once

#include "Input.h"
#include "SeekPlan.h"

#include <TARN/videoio/VideoStreamDecoder.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tio::tool {

/// The pictures of a clip by frame number, asked for in increasing order.
///
/// It reads on where the next wanted frame is near, and seeks where that saves decoding and leads
/// to a key frame. Frame n is the n-th picture of a plain reading from the start, and stays so
/// after a seek: the index has to give the picture read last its right time before it is used, and
/// the picture that a seek leads to has to have the time that the index gives its number. Where one
/// of these fails, or the clip cannot be sought in, the rest is counted from the start.
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
    [[nodiscard]] bool seekPays(int64_t number);
    [[nodiscard]] bool preparePlan();
    [[nodiscard]] Picture jumpTo(int64_t number);
    void giveUpSeeking(const std::string& reason);

    InputOptions input;
    Warn warn;
    std::unique_ptr<ffmpeg::VideoStreamDecoder> decoder;
    int64_t nextNumber = 0;    // of the picture that the decoder gives next
    ffmpeg::Rational lastTime; // of the picture that it gave last
    bool atEnd = false;        // nextNumber is the number of frames
    std::unique_ptr<SeekPlan> plan;
    bool planTrusted = false; // it has agreed with a picture read from the start
    bool maySeek = true;
};

} // namespace tio::tool
