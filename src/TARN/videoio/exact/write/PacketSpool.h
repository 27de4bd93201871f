#pragma once

#include "base/handles.h"
#include "ffmpeg_compat.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tio::ffmpeg::detail {

/// Packets of one encoder in a file without a name, which the system removes with the process, to
/// be read back once in the order in which they came.
class PacketSpool {
public:
    /// @param folder  where the file lies
    /// @param clip    the name that failures tell
    /// @throws tio::ffmpeg::Exception when no file can be made there
    PacketSpool(const std::string& folder, std::string clip);
    ~PacketSpool();
    PacketSpool(const PacketSpool&) = delete;
    PacketSpool& operator=(const PacketSpool&) = delete;

    /// @throws tio::ffmpeg::Exception for a full disk and its like
    void append(const AVPacket& packet);

    [[nodiscard]] int64_t count() const noexcept { return packets; }

    /// Ends the writing; next() gives the first packet then.
    /// @throws tio::ffmpeg::Exception
    void rewind();

    /// The next packet with its times, flags and side data; null after the last.
    /// @throws tio::ffmpeg::Exception
    [[nodiscard]] PacketHandle next();

private:
    void put(const void* data, size_t size);
    void get(void* data, size_t size);
    void flush();
    void require(bool done, int place) const;

    std::string name;
    int descriptor = -1;
    std::vector<uint8_t> buffer;
    size_t position = 0; // in the buffer, when reading
    int64_t packets = 0;
    int64_t given = 0;
};

} // namespace tio::ffmpeg::detail
