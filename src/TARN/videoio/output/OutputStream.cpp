#include "base/checks.h"
#include "output/pauses.h"

#include <TARN/videoio/OutputStream.h>

#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Places at("OutputStream");

// Before the base sees it, which would not say what kind of stream it is.
const std::shared_ptr<OutputFormatContext>&
required(const std::shared_ptr<OutputFormatContext>& context) {
    if (context == nullptr)
        detail::failAssertion("An output stream needs a context", "context", at(30));
    return context;
}

} // namespace

OutputStream::OutputStream(std::shared_ptr<OutputFormatContext> output, Rational unitTime)
    : Stream(required(output), -1), timeBase(unitTime), announcement(output->announce(unitTime)) {}

// Where the file has failed, what is held can never get into it: a write would bring FFmpeg down or
// fail once more.
OutputStream::~OutputStream() {
    if (context().hasFailed())
        context().letGo(heldPackets.size());
    else if (!context().readyForPackets())
        context().adopt(streamIndex, heldPackets);
    else if (lastWriteFailed)
        context().letGo(tryHeldPacketsOnceMore());
    else
        writeHeldPackets();
}

// The last packets of an encoder that is being destroyed. After a failure that was thrown they wait
// for the stream's own destructor, which throws nothing then.
void OutputStream::writeLast(const std::vector<OutputPacket>& packets) {
    if (context().hasFailed() || lastWriteFailed) {
        heldPackets.insert(heldPackets.end(), packets.begin(), packets.end());
        return;
    }
    for (const OutputPacket& packet : packets)
        writePacket(packet);
}

OutputFormatContext& OutputStream::context() const {
    return static_cast<OutputFormatContext&>(*formatContext);
}

void OutputStream::writePacket(const OutputPacket& packet) {
    // Also on a stream that was added before another one's header failed.
    context().rethrowFailure();
    if (lastDts && packet.hasDts())
        detail::requireShortPause(packet.getDts() - *lastDts,
                                  detail::longestPause(packet.getCodecParameters()),
                                  context().getPath(), at(50));
    if (streamIndex < 0) {
        streamIndex = context().addStream(&packet.getCodecParameters(), rotation);
        context().forgetAnnouncement(announcement);
    }
    heldPackets.push_back(packet);
    if (packet.hasDts())
        lastDts = packet.getDts();
    if (context().readyForPackets())
        writeHeldPackets();
}

void OutputStream::writeHeldPackets() {
    lastWriteFailed = true; // until all are written
    while (!heldPackets.empty()) {
        writeNow(heldPackets.front());
        heldPackets.pop_front();
    }
    lastWriteFailed = false;
}

/// In order, each once.
/// @returns how many failed again
size_t OutputStream::tryHeldPacketsOnceMore() noexcept {
    size_t failures = 0;
    for (const OutputPacket& packet : heldPackets) {
        if (!context().tryToWrite(packet, streamIndex))
            ++failures;
    }
    return failures;
}

void OutputStream::writeNow(const OutputPacket& packet) {
    context().writePacket(packet, streamIndex);
}

} // namespace tio::ffmpeg
