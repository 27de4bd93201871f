#pragma once

#include <TARN/videoio/Export.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/Packet.h>

#include <memory>
#include <vector>

struct AVPacket;

namespace tio::ffmpeg {

/// A packet and the number of the stream that it belongs to.
/// Thread rule: as Packet.
struct PacketOfStream {
    int streamIndex = -1;
    std::shared_ptr<InputPacket> packet; ///< empty at the end
};

/// Reads the packets of several streams in the order in which the input has them, in one pass: for
/// copying a clip, where InputStream, which drops the packets of all other streams, would need the
/// input opened once for each.
///
/// @code
/// tio::ffmpeg::PacketReader reader(input, {0, 1});
/// while (auto next = reader.getNextPacket(); next.packet)
///     outputs[next.streamIndex]->writePacket(*next.packet);
/// @endcode
///
/// Thread rule: used by one thread at a time, together with its context.
class TARN_VIDEOIO_API PacketReader {
public:
    /// Reads nothing yet; goes on from where the context stands, and keeps it alive.
    /// @param streamIndices numbers of the streams; packets of the others are passed over
    /// @throws tio::Exception when the input is null, or has no such stream
    PacketReader(std::shared_ptr<InputFormatContext> input, std::vector<int> streamIndices);
    ~PacketReader();
    PacketReader(const PacketReader&) = delete;
    PacketReader& operator=(const PacketReader&) = delete;

    /// The next packet of any of the streams. The input must outlive it. Without a packet at the
    /// end and also when reading fails; InputFormatContext::getEndReason() says which.
    /// @throws tio::ffmpeg::Exception when memory runs out; the packet comes with the next call
    [[nodiscard]] PacketOfStream getNextPacket();

private:
    std::shared_ptr<InputFormatContext> input;
    std::vector<int> streams;
    std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet; // pending when its size is not 0
};

} // namespace tio::ffmpeg
