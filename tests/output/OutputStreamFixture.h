#pragma once

#include "support/KeptPacket.h"
#include "support/Muxing.h"
#include "support/WritingTest.h"

#include <TARN/videoio/OutputStream.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace tio::test {

// The tests of what holds packets back use streams that the muxer counts in 1/90000 s.
inline const ffmpeg::Rational ticks(1, 90000);

class OutputStreamTest : public WritingTest {
protected:
    std::unique_ptr<ffmpeg::OutputStream> makeStream(ffmpeg::Rational timeBase = ticks) const {
        return std::make_unique<ffmpeg::OutputStream>(context, timeBase);
    }

    ffmpeg::OutputPacket packet(uint8_t mark, int64_t pts, const Parameters& parameters,
                                ffmpeg::Rational timeBase = ticks, size_t size = 1) const {
        const auto made = makePacket(std::vector<uint8_t>(size, mark), pts, pts);
        return ffmpeg::OutputPacket(made.get(), parameters.get(), timeBase);
    }
    ffmpeg::OutputPacket picture(uint8_t mark, int64_t pts) const {
        return packet(mark, pts, video);
    }
    ffmpeg::OutputPacket sound(uint8_t mark, int64_t pts) const {
        return packet(mark, pts, audio, ffmpeg::Rational(1, 48000));
    }

    Parameters video = videoParameters();
    Parameters audio = audioParameters();
};

using OutputStreamDeathTest = OutputStreamTest;

} // namespace tio::test
