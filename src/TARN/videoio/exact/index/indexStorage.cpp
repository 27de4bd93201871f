#include "exact/index/indexStorage.h"

#include "base/checks.h"
#include "base/fileHandle.h"

#include <TARN/videoio/AtomicFile.h>
#include <TARN/videoio/Exception.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
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
    char* bytes = nullptr;
    size_t count = 0;
    FileHandle memory(open_memstream(&bytes, &count));
    const bool written = memory && write(memory.get());
    memory.reset(); // the bytes are there only now
    const std::unique_ptr<char, decltype(&std::free)> owned(bytes, std::free);
    if (!written)
        throw std::bad_alloc();
    return {bytes, bytes + count};
}

void loadFromMemory(const uint8_t* bytes, size_t count, const ReadContent& read) {
    const FileHandle memory(fmemopen(const_cast<uint8_t*>(bytes), count, "rb")); // only read
    if (!memory)
        throw std::bad_alloc();
    read(memory.get(), count);
}

} // namespace tio::ffmpeg::detail
