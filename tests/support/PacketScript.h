#pragma once

#include "support/Interception.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace tio::test {

/// A packet that a scripted input delivers. The payload is `size` zero bytes.
struct ScriptedPacket {
    int64_t pts;
    int64_t dts;
    int flags = AV_PKT_FLAG_KEY;
    int size = 4;
    int stream = 0;
};

/// Replaces what av_read_frame and av_seek_frame do with packets of a test's own: reading walks
/// through the script, a seek is recorded and goes to the last packet at or before the target by
/// dts, or to the first. Lives within an Interception.
class PacketScript {
public:
    explicit PacketScript(std::vector<ScriptedPacket> script) : packets(std::move(script)) {
        calls().av_read_frame.instead = [this](AVFormatContext*, AVPacket* packet) {
            return read(packet);
        };
        calls().av_seek_frame.instead = [this](AVFormatContext*, int, int64_t target, int flags) {
            return seek(target, flags);
        };
    }
    PacketScript(const PacketScript&) = delete;
    PacketScript& operator=(const PacketScript&) = delete;
    ~PacketScript() {
        calls().av_read_frame.instead = nullptr;
        calls().av_seek_frame.instead = nullptr;
    }

    std::vector<int64_t> seekTargets; ///< of every seek so far
    int lastSeekFlags = 0;
    bool seekable = true;
    int packetsRead = 0;

private:
    int read(AVPacket* packet) {
        if (next >= packets.size())
            return AVERROR_EOF;
        const ScriptedPacket& from = packets[next++];
        ++packetsRead;
        if (from.size > 0 && av_new_packet(packet, from.size) < 0)
            return AVERROR(ENOMEM);
        packet->pts = from.pts;
        packet->dts = from.dts;
        packet->flags = from.flags;
        packet->stream_index = from.stream;
        return 0;
    }

    int seek(int64_t target, int flags) {
        seekTargets.push_back(target);
        lastSeekFlags = flags;
        if (!seekable)
            return AVERROR(EPERM);
        next = 0;
        for (size_t i = 0; i < packets.size(); ++i) {
            if (packets[i].dts != AV_NOPTS_VALUE && packets[i].dts <= target)
                next = i;
        }
        return 0;
    }

    std::vector<ScriptedPacket> packets;
    size_t next = 0;
};

} // namespace tio::test
