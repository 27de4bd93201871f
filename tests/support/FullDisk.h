#pragma once

#include "support/Ffmpeg.h"
#include "support/Interception.h"

#include <cstddef>
#include <cstdint>

namespace tio::test {

/// Stands in for the file that is opened next: takes so many bytes and is full then. Lives within
/// an Interception, longer than what writes to it.
class FullDisk {
public:
    explicit FullDisk(int64_t bytes) : left(bytes) {
        calls().avio_open.instead = [this](AVIOContext** file, const char*, int) {
            *file = open();
            return 0;
        };
        calls().avio_closep.instead = [](AVIOContext** file) { return close(file); };
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk() {
        calls().avio_open.instead = nullptr;
        calls().avio_closep.instead = nullptr;
    }

private:
    AVIOContext* open() {
        constexpr int bufferSize = 4096;
        auto* buffer = static_cast<unsigned char*>(checkFound(av_malloc(bufferSize), "buffer"));
        // Whether the bytes are const differs between FFmpeg releases.
        const auto write = [](void* disk, auto*, int size) {
            return static_cast<FullDisk*>(disk)->take(size);
        };
        const auto seek = [](void*, int64_t offset, int whence) -> int64_t {
            return whence == AVSEEK_SIZE ? AVERROR(ENOSYS) : offset;
        };
        return checkFound(avio_alloc_context(buffer, bufferSize, 1, this, nullptr, write, seek),
                          "file");
    }

    static int close(AVIOContext** file) {
        if (*file == nullptr)
            return 0;
        avio_flush(*file);
        const int result = (*file)->error;
        av_freep(&(*file)->buffer);
        avio_context_free(file);
        return result;
    }

    int take(int size) {
        if (size > left)
            return AVERROR(ENOSPC);
        left -= size;
        return size;
    }

    int64_t left;
};

} // namespace tio::test
