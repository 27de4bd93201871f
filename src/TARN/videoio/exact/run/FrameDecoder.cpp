#include "exact/run/FrameDecoder.h"

#include "base/checks.h"
#include "base/hash.h"

#include <TARN/videoio/Exception.h>

#include <array>
#include <new>

namespace tio::ffmpeg::detail {

namespace {

// A decoder that fails more often in a row than it can hold pictures will not recover.
constexpr int toleratedFailures = 64;

constexpr Places at("FrameDecoder");

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

FrameDecoder::FrameDecoder(PixelFormat format, int threadCount)
    : decoder(threadCount), pictures(format), pending(av_packet_alloc()) {
    if (!pending)
        throw std::bad_alloc();
}

// The number travels in place of the times: whatever a container says of those, missing, repeated
// or different after a seek, a picture is known by its packet.
void FrameDecoder::send(const AVPacket& packet, uint32_t number, const AVStream& stream) {
    source = &stream;
    if (decoder.state() == Decoder::State::Unopened)
        decoder.open(*stream.codecpar, stream.time_base);
    checkResult(av_packet_ref(pending.get(), &packet), at(10));
    pending->pts = number;
    pending->dts = number;
    packetWaits = true;
    ++packets;
}

void FrameDecoder::finish() {
    try {
        decoder.drain();
    } catch (const Exception& failure) {
        if (isOutOfMemory(failure))
            throw;
        ++failures;
    }
}

// A packet at which the decoder fails it would fail at again.
void FrameDecoder::sendPending() {
    if (wantsPacket())
        return;
    try {
        const auto sent = decoder.send(*pending);
        if (sent == Decoder::Sent::Waits)
            return;
        if (sent == Decoder::Sent::Invalid)
            ++failures;
    } catch (const Exception& failure) {
        if (!isOutOfMemory(failure))
            forgetPending();
        throw;
    }
    forgetPending();
}

void FrameDecoder::forgetPending() noexcept {
    av_packet_unref(pending.get());
    packetWaits = false;
}

// Damage makes a decoder fail the same way each time, and is counted. A picture that is missing for
// lack of memory would be taken for one that the stream does not have.
bool FrameDecoder::receive() {
    for (int tries = 0; source != nullptr && tries < toleratedFailures; ++tries) {
        try {
            sendPending();
            if (decoder.receive() != Decoder::Received::Frame)
                return false;
            ++received;
            // A picture without a number is one more of the packet before.
            if (decoded().pts >= 0 && decoded().pts < UINT32_MAX)
                current = static_cast<uint32_t>(decoded().pts);
            return true;
        } catch (const Exception& failure) {
            if (isOutOfMemory(failure))
                throw;
            ++failures;
        }
    }
    return false;
}

std::shared_ptr<tio::FrameBase> FrameDecoder::picture(int quarters) {
    if (!turningKnown)
        pictures.turnBy(*source, quarters);
    turningKnown = true;
    const FrameHandle shared(av_frame_clone(&decoded())); // turning replaces what a frame refers to
    if (!shared)
        throw std::bad_alloc();
    return pictures.make(*shared);
}

void FrameDecoder::restart() {
    decoder.flush();
    forgetPending();
    current = 0;
}

bool FrameDecoder::isPictureDamaged() const {
    const AVFrame& frame = decoded();
    return frame.decode_error_flags != 0 || (frame.flags & AV_FRAME_FLAG_CORRUPT) != 0;
}

uint32_t FrameDecoder::checksum() const {
    const AVFrame& frame = decoded();
    const AVPixFmtDescriptor* format =
        av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    if (format == nullptr)
        return 0;
    const std::array<uint8_t, 3> kind = {static_cast<uint8_t>(format->nb_components),
                                         format->log2_chroma_w, format->log2_chroma_h};
    uint64_t hash = hashBytes(kind.data(), kind.size(), static_cast<uint64_t>(frame.width));
    return folded(hashPlanes(frame, *format, hash + static_cast<uint64_t>(frame.height)));
}

} // namespace tio::ffmpeg::detail
