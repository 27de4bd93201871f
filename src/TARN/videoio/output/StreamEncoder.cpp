#include "base/checks.h"
#include "base/ticks.h"
#include "output/pauses.h"

#include <TARN/videoio/StreamEncoder.h>

#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Places at("StreamEncoder");

Rational truncated(Rational time, Rational unit) {
    return Rational(detail::wholeTicks(time, unit), 1) * unit;
}

} // namespace

StreamEncoder::StreamEncoder(std::shared_ptr<OutputFormatContext> context, Rational timeBase,
                             std::shared_ptr<PacketEncoder> packetEncoder)
    : outputStream(std::move(context), timeBase), encoder(std::move(packetEncoder)) {}

StreamEncoder::~StreamEncoder() {
    outputStream.writeLast(encoder->flush());
}

// Here, since the packet may come out as late as in the destructor, which cannot throw.
void StreamEncoder::requireShortPause(Rational time) const {
    const Rational unit = encoder->getUnitTime();
    if (lastTime)
        detail::requireShortPause(truncated(time, unit) - *lastTime,
                                  detail::longestPause(encoder->getCodecParameters()),
                                  outputStream.context().getPath(), at(30));
}

void StreamEncoder::writePackets(const std::vector<OutputPacket>& packets, Rational time) {
    lastTime = truncated(time, encoder->getUnitTime());
    for (const OutputPacket& packet : packets)
        outputStream.writePacket(packet);
}

} // namespace tio::ffmpeg
