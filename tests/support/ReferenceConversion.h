#pragma once

#include "support/Ffmpeg.h"

extern "C" {
#include <libavutil/imgutils.h>
}

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tio::test {

/// swscale as the library sets it up.
inline ScalerPointer makeScaler(int width, int height, AVPixelFormat source, AVPixelFormat target) {
    return ScalerPointer(checkFound(sws_getContext(width, height, source, width, height, target,
                                                   SWS_BICUBIC, nullptr, nullptr, nullptr),
                                    "pixel conversion"));
}

/// What swscale itself makes of a frame where every row has room to spare after it.
class ReferenceConversion {
public:
    ReferenceConversion(const AVFrame& frame, AVPixelFormat target) {
        const auto width = static_cast<std::size_t>(frame.width);
        const auto height = static_cast<std::size_t>(frame.height);
        planes.emplace_back(target == AV_PIX_FMT_RGB24 ? 3 * width : width, height);
        if (target == AV_PIX_FMT_NV12)
            planes.emplace_back(width + width % 2, (height + 1) / 2);
        if (target == AV_PIX_FMT_NV12 && frame.format == AV_PIX_FMT_NV12)
            copyFrom(frame); // swscale leaves the chroma of this pair unwritten
        else
            convertFrom(frame, target);
    }

    /// Where a plane, whose rows follow each other without gaps, differs from this one first; empty
    /// when it does not.
    [[nodiscard]] std::string differenceIn(std::size_t number, const uint8_t* found) const {
        const RoomyPlane& plane = planes[number];
        for (std::size_t row = 0; row < plane.rows; ++row) {
            const uint8_t* expected = plane.bytes.data() + row * plane.stride;
            const uint8_t* const end = expected + plane.used;
            const uint8_t* const actual = found + row * plane.used;
            if (std::equal(expected, end, actual))
                continue;
            const auto [wanted, got] = std::mismatch(expected, end, actual);
            return "row " + std::to_string(row) + ", byte " + std::to_string(wanted - expected) +
                   ": " + std::to_string(*got) + " instead of " + std::to_string(*wanted);
        }
        return {};
    }

private:
    struct RoomyPlane {
        RoomyPlane(std::size_t usedBytes, std::size_t rowCount)
            : used(usedBytes), rows(rowCount), stride((used + 127) / 64 * 64) {
            bytes.resize(stride * rows + 64);
        }
        std::size_t used; // of a row
        std::size_t rows;
        std::size_t stride;
        std::vector<uint8_t> bytes;
    };

    void copyFrom(const AVFrame& frame) {
        for (std::size_t i = 0; i < planes.size(); ++i)
            av_image_copy_plane(planes[i].bytes.data(), static_cast<int>(planes[i].stride),
                                frame.data[i], frame.linesize[i], static_cast<int>(planes[i].used),
                                static_cast<int>(planes[i].rows));
    }

    void convertFrom(const AVFrame& frame, AVPixelFormat format) {
        const ScalerPointer scaler =
            makeScaler(frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), format);
        std::array<uint8_t*, 4> data{};
        std::array<int, 4> strides{};
        for (std::size_t i = 0; i < planes.size(); ++i) {
            data[i] = planes[i].bytes.data();
            strides[i] = static_cast<int>(planes[i].stride);
        }
        sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, data.data(),
                  strides.data());
    }

    std::vector<RoomyPlane> planes;
};

/// How many bytes after its last row swscale writes for a picture of RGB without gaps.
inline std::ptrdiff_t reachPastTheEnd(const AVFrame& frame) {
    constexpr std::size_t guard = 4096;
    constexpr uint8_t untouched = 0xA5;
    const int rowBytes = 3 * frame.width;
    const std::ptrdiff_t used = std::ptrdiff_t{rowBytes} * frame.height;
    std::vector<uint8_t> memory(static_cast<std::size_t>(used) + guard, untouched);
    const ScalerPointer scaler = makeScaler(
        frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), AV_PIX_FMT_RGB24);
    uint8_t* const rows[4] = {memory.data()};
    const int strides[4] = {rowBytes};
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, rows, strides);
    const auto end = memory.rend() - used;
    return end - std::find_if(memory.rbegin(), end, [](uint8_t byte) { return byte != untouched; });
}

} // namespace tio::test
