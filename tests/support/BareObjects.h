#pragma once

#include "support/Ffmpeg.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

/// @file
/// FFmpeg's objects as tests need them, made without a file.

namespace tio::test {

/// A format context with empty streams.
class BareContext {
public:
    explicit BareContext(int streamCount = 1)
        : context(checkFound(avformat_alloc_context(), "format context")) {
        for (int i = 0; i < streamCount; ++i)
            checkFound(avformat_new_stream(context.get(), nullptr), "stream");
    }

    [[nodiscard]] AVFormatContext& operator*() const { return *context; }
    [[nodiscard]] AVStream& stream(int index = 0) const { return *context->streams[index]; }

private:
    struct Free {
        void operator()(AVFormatContext* owned) const noexcept { avformat_free_context(owned); }
    };
    std::unique_ptr<AVFormatContext, Free> context;
};

/// A packet that holds a counted copy of the bytes.
inline PacketPointer makePacket(const std::vector<uint8_t>& bytes, int64_t pts = 0, int64_t dts = 0,
                                int64_t duration = 0) {
    PacketPointer packet(checkFound(av_packet_alloc(), "packet"));
    check(av_new_packet(packet.get(), static_cast<int>(bytes.size())), "packet data");
    std::memcpy(packet->data, bytes.data(), bytes.size());
    packet->pts = pts;
    packet->dts = dts;
    packet->duration = duration;
    return packet;
}

/// A counted block of bytes of which the test keeps one reference: once every other is given back,
/// the count is one again.
class Counted {
public:
    Counted() : block(checkFound(av_buffer_alloc(16), "buffer")) {}
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() { av_buffer_unref(&block); }

    [[nodiscard]] AVBufferRef* share() const {
        return checkFound(av_buffer_ref(block), "reference");
    }
    [[nodiscard]] int holders() const { return av_buffer_get_ref_count(block); }

private:
    AVBufferRef* block;
};

} // namespace tio::test
