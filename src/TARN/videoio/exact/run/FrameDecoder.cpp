#include "exact/run/FrameDecoder.h"

#include "base/hash.h"

#include <TARN/videoio/Exception.h>

#include <array>

namespace tio::ffmpeg::detail {

namespace {

// A decoder that fails more often in a row than it can hold pictures will not recover.
constexpr int toleratedFailures = 64;

uint64_t hashRows(const AVFrame& frame, int plane, int rows, uint64_t seed) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    const int rowBytes = av_image_get_linesize(format, frame.width, plane);
    for (int row = 0; row < rows && rowBytes > 0; ++row)
        seed = hashBytes(frame.data[plane] + std::ptrdiff_t{row} * frame.linesize[plane],
                         static_cast<size_t>(rowBytes), seed);
    return seed;
}

uint64_t hashPlanes(const AVFrame& frame, const AVPixFmtDescriptor& format, uint64_t seed) {
    const bool palette = (format.flags & AV_PIX_FMT_FLAG_PAL) != 0;
    const int planes =
        palette ? 1 : av_pix_fmt_count_planes(static_cast<AVPixelFormat>(frame.format));
    for (int plane = 0; plane < planes; ++plane) {
        const bool chroma = (plane == 1 || plane == 2) && format.nb_components > 2;
        const int shift = chroma ? format.log2_chroma_h : 0;
        seed = hashRows(frame, plane, AV_CEIL_RSHIFT(frame.height, shift), seed);
    }
    return palette ? hashBytes(frame.data[1], AVPALETTE_SIZE, seed) : seed;
}

} // namespace

// The number travels in place of the times: whatever a container says of those, missing, repeated
// or different after a seek, a picture is known by its packet.
void FrameDecoder::send(const AVPacket& packet, uint32_t number, const AVStream& stream) {
    auto numbered = std::make_shared<InputPacket>(&packet, &stream);
    numbered->getPacket().pts = number;
    numbered->getPacket().dts = number;
    ++packets;
    offerPacket(std::move(numbered));
}

void FrameDecoder::finish() {
    try {
        end();
    } catch (const Exception&) {
        noteFailure();
    }
}

// Damage makes a decoder fail the same way each time, and is counted. A picture that is missing for
// want of memory would be taken for one that the stream does not have.
void FrameDecoder::noteFailure() {
    if (ranOutOfMemory())
        throw;
    ++failures;
}

bool FrameDecoder::receive() {
    prepareOnce(); // outside of what is taken for damage
    for (int tries = 0; tries < toleratedFailures; ++tries) {
        try {
            if (!receiveAnyFrame())
                return false;
            ++pictures;
            // A picture without a number is one more of the packet before.
            if (getFrame()->pts >= 0 && getFrame()->pts < UINT32_MAX)
                current = static_cast<uint32_t>(getFrame()->pts);
            return true;
        } catch (const Exception&) {
            noteFailure();
            skipFailedPacket();
        }
    }
    return false;
}

void FrameDecoder::restart() {
    flush();
    current = 0;
}

bool FrameDecoder::isPictureDamaged() const {
    const AVFrame& decoded = *getFrame();
    return decoded.decode_error_flags != 0 || (decoded.flags & AV_FRAME_FLAG_CORRUPT) != 0;
}

uint32_t FrameDecoder::checksum() const {
    const AVFrame& decoded = *getFrame();
    const AVPixFmtDescriptor* format =
        av_pix_fmt_desc_get(static_cast<AVPixelFormat>(decoded.format));
    if (format == nullptr)
        return 0;
    const std::array<uint8_t, 3> kind = {static_cast<uint8_t>(format->nb_components),
                                         format->log2_chroma_w, format->log2_chroma_h};
    uint64_t hash = hashBytes(kind.data(), kind.size(), static_cast<uint64_t>(decoded.width));
    return folded(hashPlanes(decoded, *format, hash + static_cast<uint64_t>(decoded.height)));
}

} // namespace tio::ffmpeg::detail
