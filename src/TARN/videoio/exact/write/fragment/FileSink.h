#pragma once

#include <TARN/videoio/ByteSink.h>

#include <string>

namespace tio::ffmpeg::detail {

/// A file that is written to while it has one name or another: it is opened once.
class FileSink : public ByteSink {
public:
    /// @param path  of a file that is there
    /// @param clip  the name that failures tell
    FileSink(const std::string& path, std::string clip);
    ~FileSink() override;

    void write(const uint8_t* bytes, std::size_t count) override;
    [[nodiscard]] bool canSeek() const override { return regular; }
    void seek(int64_t position) override;

    /// Waits until the content is on the disk.
    void flushToDisk();

private:
    void require(bool done, int place) const;

    std::string name;
    int descriptor;
    bool regular = false; ///< no pipe and no device
};

} // namespace tio::ffmpeg::detail
