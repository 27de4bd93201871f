#include "exact/index/indexStorage.h"

#include "base/checks.h"
#include "base/fileHandle.h"

#include <TARN/videoio/AtomicFile.h>
#include <TARN/videoio/Exception.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <system_error>

namespace tio::ffmpeg::detail {

namespace {

bool writeAndPublish(const std::string& path, const WriteContent& write) {
    try {
        AtomicFile file(path);
        file.makeWay();
        FileHandle handle(std::fopen(file.pathToWrite().c_str(), "wb"));
        if (!handle || !write(handle.get()))
            return false;
        if (std::fclose(handle.release()) != 0) // a full disk may show only now
            return false;
        file.publish();
        return true;
    } catch (const Exception&) {
        return false;
    }
}

/// A file in memory. Closing it leaves its bytes to whoever opened it, also where writing throws.
struct MemoryStream {
    MemoryStream() : file(open_memstream(&bytes, &count)) {}
    MemoryStream(const MemoryStream&) = delete;
    MemoryStream& operator=(const MemoryStream&) = delete;
    ~MemoryStream() {
        file.reset();
        std::free(bytes);
    }

    char* bytes = nullptr;
    size_t count = 0;
    FileHandle file; // refers to the two before it
};

} // namespace

void storeInFile(const std::string& path, const WriteContent& write) {
    if (!writeAndPublish(path, write))
        failPlainly("Could not write \"" + path + "\"");
}

void loadFromFile(const std::string& path, const ReadContent& read) {
    const FileHandle handle(std::fopen(path.c_str(), "rb"));
    std::error_code error;
    const uint64_t byteCount = std::filesystem::file_size(path, error);
    if (!handle || error)
        failPlainly("Could not open \"" + path + "\"");
    read(handle.get(), byteCount);
}

std::vector<uint8_t> storeInMemory(const WriteContent& write) {
    MemoryStream memory;
    const bool written = memory.file && write(memory.file.get());
    memory.file.reset(); // the bytes are there only now
    if (!written)
        throw std::bad_alloc();
    return {memory.bytes, memory.bytes + memory.count};
}

void loadFromMemory(const uint8_t* bytes, size_t count, const ReadContent& read) {
    const FileHandle memory(fmemopen(const_cast<uint8_t*>(bytes), count, "rb")); // only read
    if (!memory)
        throw std::bad_alloc();
    read(memory.get(), count);
}

} // namespace tio::ffmpeg::detail
