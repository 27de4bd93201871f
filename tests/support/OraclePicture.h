#pragma once

#include "support/Ffmpeg.h"
#include "support/Oracle.h"

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

    /// Converts a frame; what follows is of it.
    void convert(const AVFrame& frame);

    [[nodiscard]] uint64_t hash() const;

    /// The pixels without padding between rows.
    [[nodiscard]] std::vector<uint8_t> pixels() const;

private:
    /// A plane whose rows have room to spare: libswscale's converters write whole vectors at the
    /// end of a row, and miscompute the last columns where there is no room.
    struct PaddedPlane {
        PaddedPlane(int usedOfRow, int rowCount);

        int rowBytes;
        int rows;
        int stride;
        std::vector<uint8_t> bytes;
    };

    void prepare(const AVFrame& frame);
    void copyPlanes(const AVFrame& frame);

    OracleFormat format;
    ScalerPointer scaler; // and planes, for pictures of the following kind
    std::vector<PaddedPlane> planes;
    int width = 0;
    int height = 0;
    int sourceFormat = AV_PIX_FMT_NONE;
};

} // namespace tio::test
