#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tio::fuzz {

/// A file that exists in memory only, for as long as this object.
class MemoryFile {
public:
    MemoryFile(const uint8_t* bytes, size_t count);
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile();

    /// A path under which this process can open the file.
    [[nodiscard]] std::string path() const;

private:
    int descriptor;
};

} // namespace tio::fuzz
