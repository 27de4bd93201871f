#include "avRational.h"
#include "checks.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/OutputStream.h>

#include <string>
#include <utility>

namespace tio::ffmpeg {

OutputStream::OutputStream(std::shared_ptr<OutputFormatContext> output, Rational unitTime)
    : Stream(output, -1), timeBase(unitTime) {
    output->addExpectedStream();
}

// Without a header, on a full disk or after a packet that FFmpeg refused, a write would bring
// FFmpeg down or fail once more: what is held can never get into the file. Whoever wrote has had
// the exception already.
OutputStream::~OutputStream() {
    if (context()->readyForPackets() && !context()->hasFailed() && !lastWriteFailed)
        writeHeldPackets();
    else
        letGo(heldPackets.size());
}

void OutputStream::writeLast(const std::vector<OutputPacket>& packets) {
    if (context()->hasFailed() || lastWriteFailed) {
        heldPackets.insert(heldPackets.end(), packets.begin(), packets.end());
        return; // the destructor lets all go with one line
    }
    for (const OutputPacket& packet : packets)
        writePacket(packet);
}

void OutputStream::letGo(size_t count) const {
    if (count != 0)
        detail::logFailure(std::to_string(count) + " packets could not be written to \"" +
                           context()->getPath() + "\"");
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
    const detail::PacketHandle local(av_packet_alloc());
    detail::checkResult(local ? av_packet_ref(local.get(), &packet.getPacket()) : AVERROR(ENOMEM),
                        {"OutputStream", 70});
    av_packet_rescale_ts(local.get(), detail::toAvRational(packet.getUnitTime()),
                         getStream()->time_base);
    local->stream_index = streamIndex;
    context()->writePacket(*local);
}

} // namespace tio::ffmpeg
