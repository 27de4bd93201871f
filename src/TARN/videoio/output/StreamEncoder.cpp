#include <TARN/videoio/StreamEncoder.h>

#include <utility>

namespace tio::ffmpeg {

StreamEncoder::StreamEncoder(std::shared_ptr<OutputFormatContext> context, Rational timeBase,
                             std::shared_ptr<PacketEncoder> packetEncoder)
    : outputStream(std::move(context), timeBase), encoder(std::move(packetEncoder)) {}

StreamEncoder::~StreamEncoder() {
    outputStream.writeLast(encoder->flush());
}

void StreamEncoder::writePackets(const std::vector<OutputPacket>& packets) {
    for (const OutputPacket& packet : packets)
        outputStream.writePacket(packet);
}

} // namespace tio::ffmpeg
