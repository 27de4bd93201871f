#pragma once

#include "media/Ffmpeg.h"
#include "media/Oracle.h"

#include <vector>

namespace tio::test {

/// Turns pictures of a stream by quarters, clockwise, with libavfilter.
class OracleRotator {
public:
    OracleRotator(const AVStream& stream, int quarterTurns);

    /// Replaces the frame's contents by the turned picture.
    void turn(AVFrame& frame);

private:
    GraphPointer graph;
    AVFilterContext* source = nullptr; // both owned by the graph
    AVFilterContext* sink = nullptr;
};

/// Converts pictures without resizing.
class OracleConverter {
public:
    explicit OracleConverter(OracleFormat chosen) : format(chosen) {}

    /// The pixels of a frame, without padding between rows.
    [[nodiscard]] std::vector<uint8_t> pixelsOf(const AVFrame& frame);

private:
    void prepareScaler(const AVFrame& frame);

    OracleFormat format;
    ScalerPointer scaler; // for pictures of the following kind
    int width = 0;
    int height = 0;
    int sourceFormat = AV_PIX_FMT_NONE;
};

} // namespace tio::test
