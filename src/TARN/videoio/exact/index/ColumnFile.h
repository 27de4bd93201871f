#pragma once

#include "base/fileHandle.h"
#include "base/hash.h"
#include "base/littleEndian.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <vector>

/// @file
/// Integers in a file, lowest byte first on every host, with a hash of all of them at the end. The
/// writer and the reader have the same functions, so that one description of the content serves
/// both.

namespace tio::ffmpeg::detail {

/// Bytes on their way to or from the file. Each full block, and what is left at the end of a
/// column, goes into the hash in one piece.
class ColumnBlock {
protected:
    static constexpr size_t blockSize = 65536;

    template <typename T>
    static constexpr size_t elementsPerBlock = blockSize / sizeof(T);

    void addToHash(size_t count) { hash = hashBytes(block.data(), count, hash); }

    std::array<uint8_t, blockSize> block{};
    uint64_t hash = 0;
    bool good = true;
};

class ColumnWriter : private ColumnBlock {
public:
    explicit ColumnWriter(std::FILE* opened) : file(opened) {}

    template <typename T>
    void number(T& value) {
        const auto bits = static_cast<uint64_t>(value);
        toLittleEndian(bits, block.data());
        writeBlock(sizeof bits);
    }

    template <typename T>
    void column(std::vector<T>& values) {
        for (size_t from = 0; from < values.size(); from += elementsPerBlock<T>) {
            const size_t count = std::min(elementsPerBlock<T>, values.size() - from);
            for (size_t i = 0; i < count; ++i)
                toLittleEndian(values[from + i], block.data() + i * sizeof(T));
            writeBlock(count * sizeof(T));
        }
    }

    /// Writes the hash.
    /// @returns whether everything was written
    [[nodiscard]] bool finish() {
        uint64_t result = hash;
        number(result);
        return good;
    }

private:
    void writeBlock(size_t count) {
        addToHash(count);
        good = good && std::fwrite(block.data(), 1, count, file) == count;
    }

    std::FILE* file;
};

class ColumnReader : private ColumnBlock {
public:
    explicit ColumnReader(std::FILE* opened) : file(opened) {}

    template <typename T>
    void number(T& value) {
        readBlock(sizeof(uint64_t));
        value = static_cast<T>(fromLittleEndian<uint64_t>(block.data()));
    }

    /// Fills the column, which has the size that it had when it was written.
    template <typename T>
    void column(std::vector<T>& values) {
        for (size_t from = 0; from < values.size(); from += elementsPerBlock<T>) {
            const size_t count = std::min(elementsPerBlock<T>, values.size() - from);
            readBlock(count * sizeof(T));
            for (size_t i = 0; i < count; ++i)
                values[from + i] = fromLittleEndian<T>(block.data() + i * sizeof(T));
        }
    }

    /// Reads the hash.
    /// @returns whether everything is as it was written
    [[nodiscard]] bool finish() {
        const uint64_t expected = hash;
        uint64_t found = 0;
        number(found);
        return good && found == expected;
    }

private:
    void readBlock(size_t count) {
        good = good && std::fread(block.data(), 1, count, file) == count;
        if (!good)
            std::fill(block.begin(), block.end(), uint8_t{0});
        addToHash(count);
    }

    std::FILE* file;
};

} // namespace tio::ffmpeg::detail
