#include "exact/write/encode/requireView.h"

#include "exact/write/refusal.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace tio::ffmpeg::detail {

namespace {

constexpr uint16_t mostOf10Bits = 1023;

bool has10Bits(PictureFormat format) {
    return format == PictureFormat::Yuv420P10 || format == PictureFormat::Yuv422P10 ||
           format == PictureFormat::Yuv444P10;
}

// The row may begin at an odd address.
uint16_t sampleAt(const uint8_t* row, int64_t byte) {
    uint16_t sample = 0;
    std::memcpy(&sample, row + byte, sizeof sample);
    return sample;
}

// Four samples at a time: the check is a small part of what encoding costs.
bool keepsTo10Bits(const uint8_t* row, int64_t bytes) {
    constexpr uint64_t tooHigh = 0xfc00fc00fc00fc00;
    constexpr int64_t step = sizeof(uint64_t);
    uint64_t bits = 0;
    int64_t byte = 0;
    for (; byte + step <= bytes; byte += step) {
        uint64_t samples = 0;
        std::memcpy(&samples, row + byte, sizeof samples);
        bits |= samples;
    }
    for (; byte < bytes; byte += 2)
        bits |= sampleAt(row, byte);
    return (bits & tooHigh) == 0;
}

// Encoders compute with more than they were promised, and some stop the process.
void requireDepth(const ConstImageView& picture, const PlaneSize& size, int plane,
                  const std::string& name) {
    const auto index = static_cast<std::size_t>(plane);
    for (int row = 0; row < size.rows; ++row) {
        const uint8_t* samples = picture.planes[index] + row * picture.strides[index];
        if (keepsTo10Bits(samples, size.rowBytes))
            continue;
        int64_t byte = 0;
        while (sampleAt(samples, byte) <= mostOf10Bits)
            byte += 2;
        refuse(name, "a sample of " + std::to_string(sampleAt(samples, byte)) +
                         " in a picture of 10 bits, in column " + std::to_string(byte / 2) +
                         " of row " + std::to_string(row) + " of plane " + std::to_string(plane));
    }
}

} // namespace

void requireView(const ConstImageView& picture, const std::string& name) {
    const auto format = static_cast<int32_t>(picture.format);
    if (format < 0 || format > static_cast<int32_t>(PictureFormat::Yuv444P10))
        refuse(name, "there is no picture format " + std::to_string(format));
    if (picture.height < 1 || picture.width < 1)
        refuse(name, "a picture of " + std::to_string(picture.width) + " x " +
                         std::to_string(picture.height));
    for (int plane = 0; plane < planeCount(picture.format); ++plane) {
        const auto index = static_cast<std::size_t>(plane);
        const PlaneSize size = planeSize(picture.format, picture.height, picture.width, plane);
        if (picture.planes[index] == nullptr ||
            (size.rows > 1 && std::abs(picture.strides[index]) < size.rowBytes))
            refuse(name, "plane " + std::to_string(plane) +
                             " of a picture is missing, or its rows lie too close together");
        if (has10Bits(picture.format))
            requireDepth(picture, size, plane, name);
    }
}

} // namespace tio::ffmpeg::detail
