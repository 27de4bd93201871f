// The work of work.h by this library.

#include "work.h"

#include <TARN/videoio.h>

#include <map>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using namespace bench; // the settings that all share

std::shared_ptr<InputFormatContext> open(const Job& job) {
    return std::make_shared<InputFormatContext>(job.source);
}

template <PixelFormat format>
int64_t decode(const Job& job) {
    VideoStreamDecoder video(open(job), format);
    int64_t count = 0;
    while (video.readNextFrame().frame)
        ++count;
    return count;
}

int64_t firstFrame(const Job& job) {
    VideoStreamDecoder video(open(job), PixelFormat::RGB);
    return video.readNextFrame().frame ? 1 : 0;
}

int64_t makeIndex(const Job& job) {
    return VideoStreamDecoder(open(job), PixelFormat::RGB).getFrameCount();
}

int64_t storeIndex(const Job& job) {
    VideoStreamDecoder(open(job), PixelFormat::RGB).storeSeekingIndex(job.target);
    return 0;
}

int64_t loadIndex(const Job& job) {
    VideoStreamDecoder video(open(job), PixelFormat::RGB);
    video.loadSeekingIndex(job.target);
    return video.getFrameCount();
}

// With the index made before, as the other libraries have theirs.
int64_t seek(const Job& job) {
    VideoStreamDecoder video(open(job), PixelFormat::RGB);
    video.loadSeekingIndex(job.target);
    int64_t count = 0;
    for (const int64_t frame : framesToSeek(video.getFrameCount())) {
        video.seek(frame);
        count += video.readNextFrame().frame ? 1 : 0;
    }
    return count;
}

int64_t readerSeek(const Job& job) {
    const auto input = open(job);
    FrameReaderOptions options;
    options.index = FrameIndex::load(job.target, input).index;
    FrameReader reader(input, PixelFormat::RGB, options);
    int64_t count = 0;
    for (const int64_t frame : framesToSeek(reader.frameCount()))
        count += reader.readFrame(frame).frame ? 1 : 0;
    return count;
}

FrameReader openReader(const Job& job, FrameReaderOptions options = {}) {
    options.index = FrameIndex::load(job.target);
    return FrameReader(Source(job.source), std::move(options));
}

/// All pictures by number, through an index made before.
int64_t readAll(const Job& job, const FrameReaderOptions& options) {
    FrameReader reader = openReader(job, options);
    int64_t count = 0;
    reader.readFrames(0, reader.frameCount(), 1, [&](const FrameReader::Picture& picture) {
        count += picture.image.empty() ? 0 : 1;
        return true;
    });
    return count;
}

int64_t taggedRgb(const Job& job) {
    return readAll(job, {});
}

int64_t smallRgb(const Job& job) {
    FrameReaderOptions options;
    options.height = smallHeight;
    options.width = smallWidth;
    return readAll(job, options);
}

int64_t deepRgb(const Job& job) {
    FrameReaderOptions options;
    options.format = PictureFormat::Rgb16;
    return readAll(job, options);
}

int64_t batch(const Job& job) {
    FrameReader reader = openReader(job);
    const auto row = std::ptrdiff_t{3} * reader.width();
    const auto picture = row * reader.height();
    std::vector<uint8_t> memory(static_cast<size_t>(picture * batchSize));
    int64_t count = 0;
    reader.readFramesInto(
        framesOfBatch(reader.frameCount()),
        [&](size_t place) {
            return ImageView{PictureFormat::Rgb8,
                             reader.height(),
                             reader.width(),
                             {memory.data() + static_cast<std::ptrdiff_t>(place) * picture},
                             {row}};
        },
        [&](size_t, const FrameReader::Picture&) { return ++count > 0; });
    return count;
}

int64_t storeReaderIndex(const Job& job) {
    FrameIndex::build(open(job)).save(job.target);
    return 0;
}

int64_t decodeSound(const Job& job) {
    AudioStreamDecoder sound(open(job));
    int64_t samples = 0;
    for (auto block = sound.readNextFrame(); block.samples.count != 0;
         block = sound.readNextFrame())
        samples += block.samples.rows();
    return samples;
}

/// A matrix over bytes that lie in a file's content, without copying them.
template <typename Matrix>
Matrix view(const std::shared_ptr<Bytes>& bytes, size_t offset, Vec<int, 2> size) {
    return Matrix(size,
                  std::shared_ptr<char>(bytes, reinterpret_cast<char*>(bytes->data()) + offset));
}

int64_t encodePictures(const Job& job) {
    const auto raw = std::make_shared<Bytes>(job.source);
    const Vec<int, 2> size(rawHeight, rawWidth);
    const auto output = std::make_shared<OutputFormatContext>(job.target);
    auto video = std::make_unique<VideoStreamEncoder>(output, size, Rational(1, 25));
    const int pictures = rawPicturesIn(*raw);
    for (int n = 0; n < rawRounds * pictures; ++n) {
        const size_t offset = rawPictureBytes * static_cast<size_t>(n % pictures);
        video->writeNextFrame(view<VideoPacketEncoder::Image>(raw, offset, size), {n, 25});
    }
    video.reset();
    output->finish();
    return rawRounds * pictures;
}

int64_t encodeSound(const Job& job) {
    constexpr int stereo = 3; // FFmpeg's mask: left and right
    constexpr size_t rowBytes = sizeof(float) * soundChannels;
    const auto raw = std::make_shared<Bytes>(job.source);
    const auto rows = static_cast<int64_t>(raw->size() / rowBytes);
    const auto output = std::make_shared<OutputFormatContext>(job.target);
    auto sound = std::make_unique<AudioStreamEncoder>(output, stereo, soundRate, Rational());
    const auto block = static_cast<int>(sound->getFrameWidth());
    int64_t row = 0;
    for (; row + block <= rows; row += block)
        sound->writeNextFrame(view<AudioPacketEncoder::Samples>(
                                  raw, rowBytes * static_cast<size_t>(row), {block, soundChannels}),
                              Rational(row, soundRate));
    sound.reset();
    output->finish();
    return row;
}

/// All packets in one pass. A file can be begun only when something is known of all its streams.
int64_t remux(const Job& job) {
    const auto input = open(job);
    std::vector<int> indices(static_cast<size_t>(input->getStreamCount()));
    std::iota(indices.begin(), indices.end(), 0);
    PacketReader reader(input, indices);
    const auto output = std::make_shared<OutputFormatContext>(job.target);
    std::map<int, std::unique_ptr<OutputStream>> streams;
    std::vector<PacketOfStream> first;
    auto next = reader.getNextPacket();
    for (; next.packet && streams.size() < indices.size(); next = reader.getNextPacket()) {
        auto& stream = streams[next.streamIndex];
        if (!stream)
            stream = std::make_unique<OutputStream>(output, next.packet->getUnitTime());
        first.push_back(next);
    }
    int64_t count = 0;
    const auto write = [&](const PacketOfStream& packet) {
        streams.at(packet.streamIndex)->writePacket(*packet.packet);
        ++count;
    };
    for (const PacketOfStream& packet : first)
        write(packet);
    for (; next.packet; next = reader.getNextPacket())
        write(next);
    streams.clear();
    output->finish();
    return count;
}

int64_t readImages(const Job& job) {
    int64_t pixels = 0;
    for (int i = 0; i < imageRepeats; ++i)
        pixels += readImage(job.source).count;
    return pixels;
}

int64_t writeImages(const Job& job) {
    const auto raw = std::make_shared<Bytes>(job.source);
    for (int i = 0; i < imageRepeats; ++i)
        writeImage(job.target, view<VideoPacketEncoder::Image>(raw, 0, {rawHeight, rawWidth}));
    return imageRepeats;
}

} // namespace
} // namespace tio::ffmpeg

int main(int argc, char** argv) {
    using namespace tio::ffmpeg;
    return runTask(argc, argv,
                   {{"first-frame", firstFrame},
                    {"decode-rgb", decode<PixelFormat::RGB>},
                    {"decode-nv12", decode<PixelFormat::NV12>},
                    {"index", makeIndex},
                    {"store-index", storeIndex},
                    {"load-index", loadIndex},
                    {"seek", seek},
                    {"store-reader-index", storeReaderIndex},
                    {"tagged-rgb", taggedRgb},
                    {"small-rgb", smallRgb},
                    {"deep-rgb", deepRgb},
                    {"batch", batch},
                    {"reader-seek", readerSeek},
                    {"decode-sound", decodeSound},
                    {"encode-pictures", encodePictures},
                    {"encode-sound", encodeSound},
                    {"remux", remux},
                    {"read-image", readImages},
                    {"write-image", writeImages}});
}
