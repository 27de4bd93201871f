#include "exact/run/DecodingRun.h"

#include <utility>

namespace tio::ffmpeg::detail {

DecodingRun::DecodingRun(std::shared_ptr<PacketSource> packets, const IndexData& index,
                         PixelFormat pixelFormat, int threadCount)
    : source(std::move(packets)),
      cursor(*source, index),
      format(pixelFormat),
      threads(threadCount) {
    makeDecoder();
}

// A demuxer reports changed codec parameters once, and a decoder keeps them. So a newly opened
// source goes with a new decoder.
void DecodingRun::makeDecoder() {
    if (codec) {
        earlier.packets += codec->packetsSent();
        earlier.pictures += codec->picturesReceived();
    }
    codec = std::make_unique<FrameDecoder>(format, threads);
    openingOfCodec = source->openingCount();
    ended = false;
    lost = false;
}

bool DecodingRun::enterAt(uint32_t number) {
    // The decoder's packets refer to the stream of the source, which may be opened again.
    codec->restart();
    const bool found = cursor.goTo(number);
    if (openingOfCodec != source->openingCount())
        makeDecoder();
    ended = false;
    lost = !found;
    return found;
}

void DecodingRun::rewind() {
    codec->restart();
    cursor.rewind();
    makeDecoder();
}

void DecodingRun::startOver() {
    codec->restart();
    cursor.startOver();
    makeDecoder();
}

bool DecodingRun::next(const LeaveOut& leaveOut, uint32_t limit) {
    while (!codec->receive())
        if (ended || lost || !codec->wantsPacket() || !feed(leaveOut, limit))
            return false;
    return true;
}

/// Gives the decoder the next packet that it needs, or announces the end.
/// @returns false when the packets are not those of the index, or would pass the limit
bool DecodingRun::feed(const LeaveOut& leaveOut, uint32_t limit) {
    while (true) {
        const uint32_t number = cursor.nextNumber();
        if (number >= limit)
            return false;
        switch (cursor.advance()) {
        case PacketCursor::Step::Packet:
            if (leaveOut && leaveOut(number))
                continue;
            codec->send(source->packet(), number, source->stream());
            return true;
        case PacketCursor::Step::End:
            codec->finish();
            ended = true;
            return true;
        case PacketCursor::Step::Lost:
            lost = true;
            return false;
        }
    }
}

DecodingRun::Work DecodingRun::work() const {
    return {earlier.packets + codec->packetsSent(), earlier.pictures + codec->picturesReceived()};
}

} // namespace tio::ffmpeg::detail
