#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace tio::tool {

/// A file without a place in any folder. The library stores an index to it and loads it again by
/// path, so that one pass over a stream serves several readers; images are written to it.
class MemoryFile {
public:
    /// @throws std::system_error when the system gives none
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// Valid in this process, as long as this object lives.
    [[nodiscard]] std::string path() const;

    /// Passes the content on, piece by piece.
    /// @throws std::system_error when it cannot be read
    void forEachBlock(const std::function<void(const void* data, size_t size)>& take) const;

private:
    int descriptor;
};

} // namespace tio::tool
