#pragma once

#include "media/Input.h"

#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/SampleReader.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace tio::tool {

/// What one reading of a frame gave.
struct Reading {
    uint64_t digest = 0;
    ffmpeg::Rational time;
    std::string failure; // why there is no picture, when there is none

    [[nodiscard]] bool agreesWith(const Reading& other) const {
        return failure.empty() && other.failure.empty() && digest == other.digest &&
               time == other.time;
    }
};

/// One way to read the frames of a clip, or its sound in pieces.
class FrameSource {
public:
    FrameSource() = default;
    FrameSource(const FrameSource&) = delete;
    FrameSource& operator=(const FrameSource&) = delete;
    virtual ~FrameSource() = default;

    /// The frame after the last one read, in order from the start.
    virtual Reading readNext() = 0;
    virtual Reading readAt(int64_t number) = 0;
    virtual int64_t frameCount() = 0;

    /// What it reads, in the plural.
    [[nodiscard]] virtual std::string unit() const { return "frames"; }

    /// A line about how frames were reached; empty when there is nothing to tell.
    [[nodiscard]] virtual std::string remark() const { return {}; }
};

/// The stream decoder, which seeks by its index of times.
class DecoderSource : public FrameSource {
public:
    explicit DecoderSource(const InputOptions& input);
    Reading readNext() override;
    Reading readAt(int64_t number) override;
    int64_t frameCount() override { return decoder.getFrameCount(); }

private:
    ffmpeg::VideoStreamDecoder decoder;
};

/// The frame reader.
class ReaderSource : public FrameSource {
public:
    ReaderSource(const std::string& url, ffmpeg::FrameReaderOptions options)
        : reader(decoding(url, ffmpeg::StreamType::Video, {},
                          [&] { return ffmpeg::FrameReader(sourceOf(url), std::move(options)); })) {
    }
    Reading readNext() override;
    Reading readAt(int64_t number) override;
    int64_t frameCount() override { return reader.frameCount(); }
    [[nodiscard]] std::string remark() const override;

    [[nodiscard]] ffmpeg::FrameIndex index() const { return reader.index(); }

private:
    ffmpeg::FrameReader reader;
    int64_t next = 0;
    std::array<int64_t, 4> reached{}; // how many frames were, by how they were
};

/// The sound, in blocks of one length but for the last.
class SoundBlockSource : public FrameSource {
public:
    SoundBlockSource(const std::string& url, ffmpeg::SampleReaderOptions options)
        : reader(decoding(url, ffmpeg::StreamType::Audio, {}, [&] {
              return ffmpeg::SampleReader(sourceOf(url), std::move(options));
          })) {}
    Reading readNext() override;
    Reading readAt(int64_t number) override;
    int64_t frameCount() override;
    [[nodiscard]] std::string unit() const override;

    [[nodiscard]] ffmpeg::SampleIndex index() const { return reader.index(); }

private:
    ffmpeg::SampleReader reader;
    int64_t next = 0;
};

} // namespace tio::tool
