#include "base/checks.h"
#include "input/InputAccess.h"
#include "media/ownedPacket.h"

#include <TARN/videoio/PacketReader.h>

#include <utility>

namespace tio::ffmpeg {

PacketReader::PacketReader(std::shared_ptr<InputFormatContext> opened,
                           std::vector<int> streamIndices)
    : input(std::move(opened)), streams(std::move(streamIndices)), packet(detail::ownedPacket()) {
    if (!input)
        detail::failPlainly("A reader of packets has no input");
    for (const int index : streams)
        if (index < 0 || index >= input->getStreamCount())
            detail::failPlainly("There is no stream " + std::to_string(index) + " in " +
                                input->getUrl());
}

PacketReader::~PacketReader() = default;

PacketOfStream PacketReader::getNextPacket() {
    if (packet->size == 0 && !detail::InputAccess::readNext(*input, packet.get(), streams))
        return {};
    const int index = packet->stream_index;
    PacketOfStream next{index,
                        std::make_shared<InputPacket>(packet.get(), input->getStream(index))};
    av_packet_unref(packet.get());
    return next;
}

} // namespace tio::ffmpeg
