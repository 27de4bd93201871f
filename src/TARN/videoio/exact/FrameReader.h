#pragma once

#include "exact/FrameFinder.h"
#include "exact/PictureDelivery.h"
#include "exact/index/IndexData.h"

#include <TARN/videoio/FrameReader.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <sys/types.h>
#include <vector>

namespace tio::ffmpeg {

/// A reader with its index and the finder that works on it.
class FrameReader::Engine {
public:
    /// Gives frames in that format, or images where there is none.
    Engine(std::shared_ptr<InputFormatContext> opened, std::optional<PixelFormat> frames,
           FrameReaderOptions chosen);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    ~Engine();

    [[nodiscard]] const detail::IndexData& data() const noexcept { return *index; }
    void requireFrame(int64_t frame) const;
    [[nodiscard]] Rational secondsOf(int64_t ticks) const;
    [[nodiscard]] int64_t frameAt(const Rational& time) const;

    [[nodiscard]] Picture read(int64_t frame, const std::vector<int64_t>& wanted = {});
    [[nodiscard]] Picture readInto(int64_t frame, const ImageView& memory,
                                   const std::vector<int64_t>& wanted = {});
    void readIntoPlaces(const std::vector<int64_t>& frames, const PlaceCallback& memory,
                        const WrittenCallback& written);
    void readInOrder(const std::vector<int64_t>& frames, const Callback& callback);

    [[nodiscard]] std::vector<Range> partitions(int64_t count) const;
    [[nodiscard]] FrameDigest digest(int64_t first, int64_t end);

    [[nodiscard]] FrameIndex currentIndex() const;
    [[nodiscard]] Counters counters() const noexcept;

    [[nodiscard]] int height() const noexcept;
    [[nodiscard]] int width() const noexcept;

private:
    [[nodiscard]] std::shared_ptr<const detail::IndexData> openAndIndex(int stream);
    [[nodiscard]] detail::PictureSize storedSize() const noexcept;
    void requireMatch(const detail::IndexData& given, int stream) const;
    void useIndex(std::shared_ptr<const detail::IndexData> next);
    [[nodiscard]] std::unique_ptr<detail::FrameFinder>
    makeFinder(const detail::IndexData& next) const;
    void forgetPicture() noexcept;
    void count(bool singleThread);
    void find(int64_t frame, const std::vector<int64_t>& wanted);
    [[nodiscard]] FrameDigest digestOnce(const std::vector<int64_t>& frames);
    [[nodiscard]] std::vector<ImageView> memoryOf(size_t places, const PlaceCallback& memory) const;
    void noticeOtherProcess();
    [[nodiscard]] Picture goTo(int64_t frame, const std::vector<int64_t>& wanted);
    [[nodiscard]] int64_t bytesOf(const Picture& picture) const;
    [[noreturn]] void failReading(int64_t frame, const char* reason) const;

    [[nodiscard]] size_t readWindow(const std::vector<int64_t>& frames, size_t begin, size_t end,
                                    const Callback& callback);
    [[nodiscard]] size_t capacity() const;

    std::shared_ptr<InputFormatContext> input; // names the source; never read from
    FrameReaderOptions options;
    std::optional<PixelFormat> frameFormat; // none where images are given
    detail::PictureDelivery delivery;
    std::shared_ptr<const detail::IndexData> index;
    std::shared_ptr<detail::PacketSource> source; // that packets are read from
    std::unique_ptr<detail::FrameFinder> finder;  // refers to the index
    pid_t process;                                // that the finder belongs to
    int64_t standing = -1;                        // frame that the finder is on
    std::shared_ptr<tio::FrameBase> latestFrame;  // the one that was made of that
    int64_t pictureBytes = 1;                     // of the largest picture so far
    Counters done; // by sources and finders before these, and conversions
};

} // namespace tio::ffmpeg
