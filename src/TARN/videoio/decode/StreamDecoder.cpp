#include "base/checks.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/StreamDecoder.h>

#include <limits>
#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Location at(int number) {
    return {"StreamDecoder", number};
}

// Before every real timestamp, and far enough from the edge that demuxers can rescale it.
constexpr int64_t beforeAllTime = std::numeric_limits<int64_t>::min() / 1000000;

bool isSamePacket(const AVPacket& a, const AVPacket& b) {
    return a.pts == b.pts && a.dts == b.dts && a.pos == b.pos && a.size == b.size;
}

} // namespace

InputFormatContext& StreamDecoder::required(const std::shared_ptr<InputFormatContext>& context) {
    if (context == nullptr)
        detail::failAssertion("A stream decoder needs an input", "context != nullptr", at(10));
    return *context;
}

StreamDecoder::StreamDecoder(std::shared_ptr<InputFormatContext> context, int streamIndex)
    : input((static_cast<void>(required(context)), std::move(context))),
      inputStream(input, streamIndex) {}

StreamDecoder::~StreamDecoder() = default;

int64_t StreamDecoder::getFrameCount() const {
    makeIndex();
    return inputStream.getFrameCount();
}

void StreamDecoder::loadSeekingIndex(std::string path) {
    keepPlace([&] { inputStream.loadSeekingIndex(std::move(path)); });
    indexed = true;
}

void StreamDecoder::storeSeekingIndex(std::string path) const {
    makeIndex();
    inputStream.storeSeekingIndex(std::move(path));
}

void StreamDecoder::makeIndex() const {
    if (indexed)
        return;
    keepPlace([&] { (void)inputStream.getFrameCount(); });
    indexed = true;
}

/// Does what moves the input, and has reading go on where it stood. The packets that the decoder
/// holds stay in it, so it has to be the very next one that follows.
template <typename Action>
void StreamDecoder::keepPlace(Action action) const {
    if (!started) {
        action();
        return;
    }
    if (!pendingPacket)
        pendingPacket = inputStream.getNextPacket();
    try {
        action();
    } catch (...) {
        try {
            rewindToPlace();
        } catch (const tio::Exception&) { // an input that cannot be rewound has not moved
        }
        throw;
    }
    returnToPlace();
}

// What moves the input leads to frame 0, most often before the place.
void StreamDecoder::returnToPlace() const {
    if (!readPastPendingPacket())
        rewindToPlace();
}

void StreamDecoder::rewindToPlace() const {
    input->seekStreamToOrBefore(beforeAllTime, inputStream.getStream()->index);
    if (!readPastPendingPacket())
        detail::failAssertion("The place where reading stood was not found again in \"" +
                                  input->getUrl() + "\"",
                              "readPastPendingPacket()", at(20));
}

/// Without a pending packet the place is the end.
bool StreamDecoder::readPastPendingPacket() const {
    while (const auto packet = inputStream.getNextPacket())
        if (pendingPacket && isSamePacket(packet->getPacket(), pendingPacket->getPacket()))
            return true;
    return !pendingPacket;
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
// The decoder is emptied last: where the seek is refused, it goes on.
int64_t StreamDecoder::seekToOrBefore(int64_t frame) {
    makeIndex();
    primeOnce();
    const int64_t landed = inputStream.seekToOrBefore(frame);
    packetDecoder().flush();
    return landed;
}

// Frames are counted, not matched by their times. Those on the way are neither turned nor
// converted, because nobody sees them; this is what makes a seek fast.
void StreamDecoder::seek(int64_t frame) {
    for (int64_t landed = seekToOrBefore(frame); landed < frame; ++landed)
        pumpFrame(FrameUse::Skip);
}

// A packet that fails is told of once. FFmpeg would fail at it again, and nothing after it come
// out. What was told when the first packet was offered is not told again.
bool StreamDecoder::takeFrame(FrameUse use) {
    try {
        return use == FrameUse::Keep ? frameReady() : packetDecoder().receiveFrame();
    } catch (...) {
        if (packetDecoder().isHopeless())
            return false;
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
        if (packetDecoder().isHopeless())
            return false;
        more = feedDecoder();
        if (takeFrame(use))
            return true;
        // A codec that has put out a frame to be dropped may not have looked at the last packet
        // yet, and FFmpeg lets go of such a packet when it is told of the end.
        more = more || packetDecoder().hasDroppedFrame();
        // A live source may go on after its end; a drained codec takes nothing, so do not wait.
    } while (more && !packetDecoder().isDrained());
    if (packetDecoder().isHopeless())
        return false;
    packetDecoder().end();
    return takeFrame(use);
}

} // namespace tio::ffmpeg
