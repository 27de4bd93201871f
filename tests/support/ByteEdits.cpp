#include "support/ByteEdits.h"

#include "support/Demuxing.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tio::test {

std::vector<uint8_t> readBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("test media: cannot read " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        throw std::runtime_error("test media: cannot write " + path);
}

void truncateFile(const std::string& path, std::size_t size) {
    std::filesystem::resize_file(path, size);
}

void flipBytes(const std::string& path, std::size_t offset, std::size_t count) {
    std::vector<uint8_t> bytes = readBytes(path);
    if (offset > bytes.size() || count > bytes.size() - offset)
        throw std::out_of_range("test media: no such bytes in " + path);
    for (std::size_t i = offset; i < offset + count; ++i)
        bytes[i] = static_cast<uint8_t>(~bytes[i]);
    writeBytes(path, bytes);
}

PacketPlace findPacket(const std::string& path, int number) {
    VideoDemuxer demuxer(path);
    for (int n = 0; demuxer.readPacket(); ++n) {
        if (n < number)
            continue;
        // What a demuxer calls the position may be a header just before the payload.
        const std::vector<uint8_t> bytes = readBytes(path);
        const AVPacket& packet = demuxer.packet();
        const auto position = static_cast<std::ptrdiff_t>(std::max<int64_t>(packet.pos, 0));
        const auto found = std::search(bytes.begin() + position, bytes.end(), packet.data,
                                       packet.data + packet.size);
        if (packet.size == 0 || found == bytes.end() || found - bytes.begin() - position > 64)
            throw std::runtime_error("test media: packet is not in one piece in " + path);
        return {static_cast<std::size_t>(found - bytes.begin()),
                static_cast<std::size_t>(packet.size)};
    }
    throw std::runtime_error("test media: too few packets in " + path);
}

void damagePacket(const std::string& path, int number) {
    const PacketPlace place = findPacket(path, number);
    flipBytes(path, place.offset, place.size);
}

} // namespace tio::test
