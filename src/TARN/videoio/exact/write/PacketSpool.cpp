#include "exact/write/PacketSpool.h"

#include "base/checks.h"
#include "base/unnamedFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

constexpr size_t bufferBytes = size_t{256} * 1024;

struct PacketHead {
    int64_t pts;
    int64_t dts;
    int64_t duration;
    int32_t flags;
    int32_t size;
    int32_t sideData; ///< pieces of it
    int32_t unused;
};

struct SideHead {
    int64_t size;
    int64_t type;
};

} // namespace

PacketSpool::PacketSpool(const std::string& folder, std::string clip)
    : name(std::move(clip)), descriptor(openUnnamed(folder)) {
    require(descriptor >= 0, 10);
    buffer.reserve(bufferBytes);
}

PacketSpool::~PacketSpool() {
    if (descriptor >= 0)
        ::close(descriptor);
}

void PacketSpool::require(bool done, int place) const {
    if (!done)
        checkResult(AVERROR(errno), {"PacketSpool", place}, name);
}

void PacketSpool::append(const AVPacket& packet) {
    const PacketHead head = {
        packet.pts, packet.dts, packet.duration, packet.flags, packet.size, packet.side_data_elems,
        0};
    put(&head, sizeof head);
    for (int i = 0; i < packet.side_data_elems; ++i) {
        const AVPacketSideData& side = packet.side_data[i];
        const SideHead sideHead = {static_cast<int64_t>(side.size), side.type};
        put(&sideHead, sizeof sideHead);
        put(side.data, static_cast<size_t>(side.size));
    }
    put(packet.data, static_cast<size_t>(packet.size));
    ++packets;
}

void PacketSpool::put(const void* data, size_t size) {
    const auto* next = static_cast<const uint8_t*>(data);
    while (size > 0) {
        if (buffer.size() == bufferBytes)
            flush();
        const size_t part = std::min(size, bufferBytes - buffer.size());
        buffer.insert(buffer.end(), next, next + part);
        next += part;
        size -= part;
    }
}

void PacketSpool::flush() {
    size_t done = 0;
    while (done < buffer.size()) {
        const ssize_t written = ::write(descriptor, buffer.data() + done, buffer.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        require(written >= 0, 20);
        done += static_cast<size_t>(written);
    }
    buffer.clear();
}

void PacketSpool::rewind() {
    flush();
    require(::lseek(descriptor, 0, SEEK_SET) == 0, 30);
    position = 0;
}

void PacketSpool::get(void* data, size_t size) {
    auto* next = static_cast<uint8_t*>(data);
    while (size > 0) {
        if (position == buffer.size()) {
            buffer.resize(bufferBytes);
            const ssize_t got = ::read(descriptor, buffer.data(), bufferBytes);
            buffer.resize(got > 0 ? static_cast<size_t>(got) : 0);
            position = 0;
            if (got < 0 && errno == EINTR)
                continue;
            require(got >= 0, 40);
            checkResult(got > 0 ? 0 : AVERROR_EOF, {"PacketSpool", 41}, name);
        }
        const size_t part = std::min(size, buffer.size() - position);
        std::memcpy(next, buffer.data() + position, part);
        position += part;
        next += part;
        size -= part;
    }
}

PacketHandle PacketSpool::next() {
    if (given == packets)
        return nullptr;
    PacketHead head{};
    get(&head, sizeof head);
    PacketHandle packet(av_packet_alloc());
    checkResult(packet ? av_new_packet(packet.get(), head.size) : AVERROR(ENOMEM),
                {"PacketSpool", 50}, name);
    packet->pts = head.pts;
    packet->dts = head.dts;
    packet->duration = head.duration;
    packet->flags = head.flags;
    for (int i = 0; i < head.sideData; ++i) {
        SideHead side{};
        get(&side, sizeof side);
        uint8_t* bytes =
            av_packet_new_side_data(packet.get(), static_cast<AVPacketSideDataType>(side.type),
                                    static_cast<decltype(AVPacketSideData::size)>(side.size));
        checkResult(bytes != nullptr ? 0 : AVERROR(ENOMEM), {"PacketSpool", 51}, name);
        get(bytes, static_cast<size_t>(side.size));
    }
    get(packet->data, static_cast<size_t>(head.size));
    ++given;
    return packet;
}

} // namespace tio::ffmpeg::detail
