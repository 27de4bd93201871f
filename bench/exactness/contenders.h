#pragma once

#include "support/ByteEdits.h"
#include "support/HashedPicture.h"

#include <TARN/videoio.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tio::bench {

using Reached = ffmpeg::FrameReader::Reached;

struct Access {
    uint64_t hash = 0;
    Reached reached = Reached::Exact;
};

/// Something that gives pictures by number.
class Contender {
public:
    Contender() = default;
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;
    virtual ~Contender() = default;
    virtual int64_t frameCount() = 0;
    virtual Access read(int64_t frame) = 0;

    /// Reads many at once, where that takes less time, and says how many of them.
    virtual size_t readList(const std::vector<int64_t>& /*frames*/,
                            const std::function<void(const Access&)>& /*receive*/) {
        return 0;
    }
    [[nodiscard]] virtual bool isDamaged() const { return false; }
};

class ByReader : public Contender {
public:
    explicit ByReader(const ffmpeg::Source& source, bool checksums = false, int threads = 0)
        : reader(std::make_shared<ffmpeg::InputFormatContext>(source), ffmpeg::PixelFormat::RGB,
                 optionsFor(checksums, threads)) {}

    int64_t frameCount() override { return reader.frameCount(); }
    Access read(int64_t frame) override { return accessOf(reader.readFrame(frame)); }
    size_t readList(const std::vector<int64_t>& frames,
                    const std::function<void(const Access&)>& receive) override {
        reader.readFrames(frames, [&](const auto& picture) {
            receive(accessOf(picture));
            return true;
        });
        return frames.size();
    }
    [[nodiscard]] bool isDamaged() const override { return reader.index().isDamaged(); }

private:
    static Access accessOf(const ffmpeg::FrameReader::Picture& picture) {
        return {test::hashedPicture(*picture.frame).hash, picture.reached};
    }

    static ffmpeg::FrameReaderOptions optionsFor(bool checksums, int threads) {
        ffmpeg::FrameReaderOptions options;
        options.colours = ffmpeg::Colours::Bt601; // as the truth takes them
        options.checksums = checksums;
        options.threads = threads;
        return options;
    }

    ffmpeg::FrameReader reader;
};

/// A reader that is in use when the process forks: the child reads, and tells its parent. The next
/// list is read by a child of a parent that has read on in between.
class ByChild : public ByReader {
public:
    ByChild(const std::string& path, int threads) : ByReader(path, false, threads) {}

    size_t readList(const std::vector<int64_t>& frames,
                    const std::function<void(const Access&)>& receive) override {
        static_cast<void>(ByReader::read(frames.back()));
        int ends[2];
        if (::pipe(ends) != 0)
            throw std::runtime_error("no pipe");
        const pid_t child = ::fork();
        if (child == 0)
            ::_exit(tell(ends[1], frames));
        ::close(ends[1]);
        size_t told = 0;
        for (Access access; ::read(ends[0], &access, sizeof access) == sizeof access; ++told)
            receive(access);
        ::close(ends[0]);
        int status = 0;
        ::waitpid(child, &status, 0);
        if (told != frames.size() || status != 0)
            throw std::runtime_error("the child gave up");
        return told;
    }

private:
    int tell(int pipe, const std::vector<int64_t>& frames) {
        try {
            ByReader::readList(frames, [&](const Access& access) {
                if (::write(pipe, &access, sizeof access) != sizeof access)
                    throw std::runtime_error("nobody listens");
            });
        } catch (const std::exception&) {
            return 1;
        }
        return 0;
    }
};

class BySeek : public Contender {
public:
    explicit BySeek(const std::string& path)
        : decoder(std::make_shared<ffmpeg::InputFormatContext>(path), ffmpeg::PixelFormat::RGB) {}

    int64_t frameCount() override { return decoder.getFrameCount(); }
    Access read(int64_t frame) override {
        decoder.seek(frame);
        const auto picture = decoder.readNextFrame();
        if (!picture.frame)
            throw Exception("no picture");
        return {test::hashedPicture(*picture.frame).hash, Reached::Exact};
    }

private:
    ffmpeg::VideoStreamDecoder decoder;
};

/// A block of memory that is given away in odd portions.
class BlockStream : public ffmpeg::ByteStream {
public:
    explicit BlockStream(std::shared_ptr<const std::vector<uint8_t>> bytes)
        : block(std::move(bytes)) {}

    int64_t read(uint8_t* to, int64_t count) override {
        constexpr int64_t most = 5000;
        const int64_t given = std::max<int64_t>(std::min({count, most, size() - position}), 0);
        if (given > 0)
            std::memcpy(to, block->data() + position, static_cast<size_t>(given));
        position += given;
        return given;
    }
    void seek(int64_t target) override { position = target; }
    int64_t size() override { return static_cast<int64_t>(block->size()); }

private:
    std::shared_ptr<const std::vector<uint8_t>> block;
    int64_t position = 0;
};

inline std::unique_ptr<Contender> contenderOf(const std::string& kind, const std::string& path) {
    if (kind == "seek")
        return std::make_unique<BySeek>(path);
    if (kind == "memory")
        return std::make_unique<ByReader>(ffmpeg::Source::memory(test::readBytes(path)));
    if (kind == "factory") {
        const auto bytes = std::make_shared<const std::vector<uint8_t>>(test::readBytes(path));
        return std::make_unique<ByReader>(ffmpeg::Source::streams(
            [bytes] { return std::make_unique<BlockStream>(bytes); }, path));
    }
    if (kind.compare(0, 4, "fork") == 0)
        return std::make_unique<ByChild>(path, std::stoi(kind.substr(4)));
    return std::make_unique<ByReader>(path, kind == "checksums");
}

} // namespace tio::bench
