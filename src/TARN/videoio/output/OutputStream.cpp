#include <TARN/videoio/OutputStream.h>

#include <utility>

namespace tio::ffmpeg {

OutputStream::OutputStream(std::shared_ptr<OutputFormatContext> output, Rational unitTime)
    : Stream(output, -1), timeBase(unitTime) {
    output->addExpectedStream();
}

// Where the file has failed or FFmpeg refused a packet, what is held can never get into it: a write
// would bring FFmpeg down or fail once more. Whoever wrote has had the exception already.
OutputStream::~OutputStream() {
    if (context()->hasFailed() || lastWriteFailed)
        context()->letGo(heldPackets.size());
    else if (context()->readyForPackets())
        writeHeldPackets();
    else
        context()->adopt(streamIndex, heldPackets);
}

void OutputStream::writeLast(const std::vector<OutputPacket>& packets) {
    if (context()->hasFailed() || lastWriteFailed) {
        heldPackets.insert(heldPackets.end(), packets.begin(), packets.end());
        return; // the destructor lets all go with one line
    }
    for (const OutputPacket& packet : packets)
        writePacket(packet);
}

std::shared_ptr<OutputFormatContext> OutputStream::context() const {
    return std::static_pointer_cast<OutputFormatContext>(formatContext);
}

void OutputStream::writePacket(const OutputPacket& packet) {
    const auto output = context();
    // Also on a stream that was added before another one's header failed.
    output->rethrowFailure();
    if (streamIndex < 0)
        streamIndex = output->addStream(&packet.getCodecParameters(), rotation);
    heldPackets.push_back(packet);
    if (output->readyForPackets())
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

void OutputStream::writeNow(const OutputPacket& packet) {
    context()->writePacket(packet, streamIndex);
}

} // namespace tio::ffmpeg
