#include <TARN/videoio/StreamDecoder.h>

#include <utility>

namespace tio::ffmpeg {

StreamDecoder::StreamDecoder(std::shared_ptr<InputFormatContext> context, int streamIndex)
    : inputStream(std::move(context), streamIndex) {}

StreamDecoder::~StreamDecoder() = default;

void StreamDecoder::loadSeekingIndex(std::string path) {
    inputStream.loadSeekingIndex(std::move(path));
}

void StreamDecoder::storeSeekingIndex(std::string path) const {
    inputStream.storeSeekingIndex(std::move(path));
}

void StreamDecoder::primeOnce() const {
    if (started)
        return;
    started = true;
    // A fresh decoder takes the packet; a stream without any packet has none to give.
    const_cast<StreamDecoder*>(this)->packetDecoder().offerPacket(inputStream.getNextPacket());
}

// A packet that the decoder refused before a seek is offered first after it: kept, because the
// pump as it is never leaves one behind, and callers' own decoders may count on it.
int64_t StreamDecoder::seekToOrBefore(int64_t frame) {
    primeOnce();
    packetDecoder().flush();
    return inputStream.seekToOrBefore(frame);
}

// Frames are counted, not matched by their times. Those on the way are neither turned nor
// converted, because nobody sees them; this is what makes a seek fast.
void StreamDecoder::seek(int64_t frame) {
    for (int64_t landed = seekToOrBefore(frame); landed < frame; ++landed)
        pumpFrame(FrameUse::Skip);
}

// A packet that fails is told of once. FFmpeg would fail at it again, and nothing behind it come
// out.
bool StreamDecoder::takeFrame(FrameUse use) {
    try {
        return use == FrameUse::Keep ? frameReady() : packetDecoder().receiveFrame();
    } catch (...) {
        packetDecoder().skipFailedPacket();
        throw;
    }
}

// Gives the decoder the stream's next packet, or again the one that it refused last time.
// Returns whether a frame may still come without an end of input.
bool StreamDecoder::feedDecoder() {
    if (!pendingPacket)
        pendingPacket = inputStream.getNextPacket();
    if (!pendingPacket)
        return !packetDecoder().offerWouldBeAccepted();
    if (packetDecoder().offerWouldBeAccepted()) // and kept there also when its codec fails to open
        packetDecoder().offerPacket(std::exchange(pendingPacket, nullptr));
    return true;
}

bool StreamDecoder::pumpFrame(FrameUse use) {
    primeOnce();
    bool more = true;
    do {
        more = feedDecoder();
        if (takeFrame(use))
            return true;
        // A codec that has put out a frame to be dropped may not have looked at the last packet
        // yet, and FFmpeg lets go of such a packet when it is told of the end.
        more = more || packetDecoder().hasDroppedFrame();
        // A live source may go on after its end; a drained codec takes nothing, so do not wait.
    } while (more && !packetDecoder().isDrained());
    packetDecoder().end();
    return takeFrame(use);
}

} // namespace tio::ffmpeg
