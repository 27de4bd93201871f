#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// @file
/// Damage to finished files, byte by byte.

namespace tio::test {

[[nodiscard]] std::vector<uint8_t> readBytes(const std::string& path);
void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes);

/// Keeps only the first `size` bytes.
void truncateFile(const std::string& path, std::size_t size);

/// Inverts every bit of a range.
/// @throws std::out_of_range when the file does not hold it
void flipBytes(const std::string& path, std::size_t offset, std::size_t count);

/// Where the payload of a packet lies in its file.
struct PacketPlace {
    std::size_t offset;
    std::size_t size;
};

/// Finds packet `number` (from 0, in the order of the file) of the best video stream. Works where
/// the container keeps a packet in one piece: MP4, Matroska, AVI, raw streams; not in MPEG-TS.
/// @throws std::runtime_error when there is no such packet, or it is not in one piece
[[nodiscard]] PacketPlace findPacket(const std::string& path, int number);

/// Inverts the whole payload of a video packet. In MP4 and Matroska an H.264 decoder then refuses
/// the packet, since the length of its first unit exceeds it.
void damagePacket(const std::string& path, int number);

} // namespace tio::test
