#pragma once

#include <TARN/videoio/Export.h>

#include <cstddef>
#include <string>
#include <sys/types.h>

namespace tio::ffmpeg {

/// A file that gets its name only when it is complete: until then a file that was there before
/// stays, and nobody sees half of the new one.
///
/// It is written under a hidden name of its own in the same folder, `.tarn-videoio-….part`, and
/// publish() renames it. Destroyed without that, it disappears. Two that are written for one name
/// at the same time, in one process or in two, do not touch each other; the one that is published
/// last stays.
///
/// Links are followed, so that they stay. What is there already and is no regular file, such as a
/// device, a pipe or `/dev/stdout`, is written to directly.
///
/// @code
/// tio::ffmpeg::AtomicFile file("list.txt");
/// file.write(text.data(), text.size());
/// file.publish();
/// @endcode
/// Thread rule: used by one thread at a time.
class TARN_VIDEOIO_API AtomicFile {
public:
    /// What becomes of a file that has the name already.
    enum class Existing {
        Replace, ///< the new one takes its place and its permissions
        Refuse,  ///< it stays, also when it appears while the new one is written
    };

    /// What publish() waits for.
    enum class Flush {
        ToDisk,   ///< until the content is on the disk: also a power failure leaves a whole file
        BySystem, ///< for nothing: the system writes it out in its own time
    };

    /// Makes the temporary file, or opens what is to be written to directly.
    /// @throws tio::ffmpeg::Exception the system's words, ": " and the path: for a folder, a folder
    ///         that is missing, a file that is there and is to stay, …
    explicit AtomicFile(std::string path, Existing existing = Existing::Replace);

    /// Removes the temporary file, unless it was published or the process has forked since.
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    /// Appends `size` bytes.
    /// @throws tio::ffmpeg::Exception the system's words, ": " and the path
    void write(const void* data, size_t size);

    /// Where the content lies until it is published, for code that opens files by name. Of what is
    /// written to directly it is the name itself before makeWay(), and a file in memory after it.
    [[nodiscard]] const std::string& pathToWrite() const noexcept {
        return temporary.empty() ? name : temporary;
    }

    /// Whether it is written to directly: then there is nothing to rename or to remove.
    [[nodiscard]] bool isDirect() const noexcept { return direct; }

    /// Leaves the writing to code that makes a file at pathToWrite() by itself, and may go to and
    /// fro in it. The empty temporary file is removed: were it there and truncated, some file
    /// systems would write all of it out when it is closed. What is to be written to directly gets
    /// its content when it is published. write() may not be called after it.
    /// @throws tio::ffmpeg::Exception as write()
    void makeWay();

    /// Gives the file its name. Whoever wrote to pathToWrite() by himself has closed it before.
    /// @throws tio::ffmpeg::Exception as write(); what had the name before is still there then
    void publish(Flush flush = Flush::ToDisk);

private:
    void findTarget();
    void openTemporary();
    void flushToDisk();
    void passOnMemory();
    void closeDescriptor();
    [[nodiscard]] bool rename() const;
    void require(bool done, int place) const;

    std::string name;      // as the caller gave it
    std::string target;    // where that leads: links are followed
    std::string temporary; // empty when there is none, or no longer
    int memory = -1;       // of what another writes for a direct target
    bool direct = false;
    bool mayReplace;
    mode_t permissions = 0; // of the file that is replaced; 0 when there is none
    int descriptor = -1;
    pid_t owner; // a forked child leaves the file to its parent
};

} // namespace tio::ffmpeg
