#include "Jobs.h"

#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/EncoderInput.h"
#include "support/HashedPicture.h"
#include "support/Oracle.h"
#include "support/StillImages.h"

#include <TARN/videoio.h>

#include <memory>
#include <stdexcept>

namespace tio::test {

namespace {

using ffmpeg::AudioStreamDecoder;
using ffmpeg::AudioStreamEncoder;
using ffmpeg::FrameReader;
using ffmpeg::InputFormatContext;
using ffmpeg::OutputFormatContext;
using ffmpeg::PixelFormat;
using ffmpeg::Rational;
using ffmpeg::VideoPacketDecoder;
using ffmpeg::VideoPacketEncoder;
using ffmpeg::VideoStreamDecoder;
using ffmpeg::VideoStreamEncoder;

template <typename Value>
uint64_t hashOfValue(const Value& value, uint64_t seed) {
    return hashOf(reinterpret_cast<const uint8_t*>(&value), sizeof(value), seed);
}

uint64_t hashOfTime(const Rational& time, uint64_t seed) {
    return hashOfValue(time.denominator, hashOfValue(time.numerator, seed));
}

template <typename Matrix>
uint64_t hashOfMatrix(const Matrix& matrix, uint64_t seed) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(matrix.data());
    return hashOf(bytes, static_cast<size_t>(matrix.count) * sizeof(*matrix.data()), seed);
}

uint64_t hashOfFile(const std::string& path, uint64_t seed) {
    const std::vector<uint8_t> bytes = readBytes(path);
    return hashOf(bytes.data(), bytes.size(), seed);
}

uint64_t hashOfPicture(const VideoPacketDecoder::Frame& frame, uint64_t seed) {
    if (!frame.frame)
        throw std::runtime_error("there is no such frame");
    return hashOfTime(frame.timestamp, hashOfValue(hashedPicture(*frame.frame).hash, seed));
}

VideoStreamDecoder openVideo(const std::string& path, PixelFormat format) {
    return VideoStreamDecoder(std::make_shared<InputFormatContext>(path), format);
}

uint64_t decode(const std::string& path, PixelFormat format) {
    VideoStreamDecoder video = openVideo(path, format);
    uint64_t hash = emptyHash;
    for (auto next = video.readNextFrame(); next.frame; next = video.readNextFrame())
        hash = hashOfPicture(next, hash);
    return hash;
}

uint64_t decodeOne(const std::string& path) {
    return hashOfPicture(openVideo(path, PixelFormat::RGB).readNextFrame(), emptyHash);
}

uint64_t decodeSound(const std::string& path) {
    AudioStreamDecoder audio(std::make_shared<InputFormatContext>(path));
    uint64_t hash = emptyHash;
    for (auto next = audio.readNextFrame(); next.samples.rows() != 0; next = audio.readNextFrame())
        hash = hashOfTime(next.timestamp, hashOfMatrix(next.samples, hash));
    return hash;
}

uint64_t seek(const std::string& path) {
    VideoStreamDecoder video = openVideo(path, PixelFormat::RGB);
    uint64_t hash = emptyHash;
    for (const int64_t frame : {17, 3, 24, 0, 12, 11}) {
        video.seek(frame);
        hash = hashOfPicture(video.readNextFrame(), hash);
    }
    return hash;
}

uint64_t readByNumber(const std::string& path) {
    FrameReader reader(std::make_shared<InputFormatContext>(path), PixelFormat::NV12);
    uint64_t hash = emptyHash;
    reader.readFrames({20, 4, 5, 23, 0}, [&](const FrameReader::Picture& picture) {
        hash = hashOfPicture({picture.frame, picture.time, {}}, hash);
        return true;
    });
    return hash;
}

uint64_t readSoundByNumber(const std::string& path) {
    ffmpeg::SampleReader reader(path);
    uint64_t hash = hashOfValue(reader.sampleCount(), emptyHash);
    const int64_t total = reader.sampleCount();
    for (const int64_t first : {total / 2, int64_t{0}, total - 3000, total / 3})
        hash = hashOfMatrix(reader.readSamples(first, 3000), hash);
    const auto index = ffmpeg::SampleIndex::fromBytes(reader.index().toBytes());
    return hashOfTime(reader.timeOfSample(total - 1), hashOfValue(index.sampleCount(), hash));
}

// Not the bytes: beside other work in the process, x264 does not always make the same ones of the
// same pictures.
uint64_t hashOfNumbers(const std::string& path) {
    VideoStreamDecoder video = openVideo(path, PixelFormat::RGB);
    uint64_t hash = emptyHash;
    for (auto next = video.readNextFrame(); next.frame; next = video.readNextFrame()) {
        const auto& plane =
            static_cast<const tio::Frame<tio::PixelFormat::RGB>&>(*next.frame).plane;
        const int number = readPictureNumber(plane.data(), plane.cols() / 3, plane.rows());
        hash = hashOfTime(next.timestamp, hashOfValue(number, hash));
    }
    return hash;
}

uint64_t writeClip(const std::string& path) {
    const auto output = std::make_shared<OutputFormatContext>(path);
    {
        VideoStreamEncoder video(output, {64, 96}, {1, 25});
        AudioStreamEncoder audio(output, 3, 48000, {0, 1});
        for (int n = 0; n < 10; ++n) {
            video.writeNextFrame(numberedImage(64, 96, n), {n, 25});
            audio.writeNextFrame(numberedBlock(1024, 2), {1024 * n, 48000});
        }
    }
    output->finish();
    return hashOfValue(decodeSound(path), hashOfNumbers(path));
}

uint64_t encodeOne() {
    VideoPacketEncoder encoder({64, 96}, {1, 25}, {});
    uint64_t hash = emptyHash;
    static_cast<void>(encoder.writeNextFrame(numberedImage(64, 96, 5)));
    for (const ffmpeg::OutputPacket& packet : encoder.flush())
        hash = hashOfTime(packet.getDuration(), hashOfTime(packet.getPts(), hash));
    return hash;
}

uint64_t convertImage(const std::string& source, const std::string& scratch) {
    uint64_t hash = emptyHash;
    for (const std::string extension : {".png", ".jpg", ".ppm"}) {
        ffmpeg::writeImage(scratch + extension, tio::readImageUpright(source));
        hash = hashOfMatrix(tio::readImage(scratch + extension), hash);
    }
    return hash;
}

uint64_t failToOpen(const std::string& path) {
    try {
        InputFormatContext{path};
    } catch (const tio::ffmpeg::Exception& failure) {
        const std::string text = failure.what();
        return hashOf(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    }
    throw std::runtime_error("a broken file was opened");
}

} // namespace

JobFiles::JobFiles(const std::string& folder)
    : clip(folder + "/clip.mp4"),
      stream(folder + "/clip.ts"),
      image(folder + "/photo.jpg"),
      broken(folder + "/broken.mp4") {}

void JobFiles::make() const {
    ClipPlan plan;
    // Large enough for the allocator of matrices to keep their memory for other threads.
    plan.width = 256;
    plan.height = 144;
    plan.audio = true;
    plan.rotation = 90;
    makeClip(clip, plan);
    plan.rotation = 0;
    plan.format = "mpegts";
    makeClip(stream, plan);
    makeImage(image, {"mjpeg", "yuvj420p", 34, 22, 5, {}});
    addExifOrientation(image, 6);
    writeBytes(broken, {0, 0, 0, 16, 'f', 't', 'y', 'p', 'i', 's', 'o', 'm', 0, 0, 2, 0});
}

std::vector<Job> beginningsOver(const JobFiles& files) {
    using Scratch = const std::string&;
    return {
        {"decode a picture", [&](Scratch) { return decodeOne(files.clip); }},
        {"encode a picture", [](Scratch) { return encodeOne(); }},
        {"read an image",
         [&](Scratch) { return hashOfMatrix(tio::readImage(files.image), emptyHash); }},
        {"write an image",
         [](Scratch scratch) {
             ffmpeg::writeImage(scratch + ".png", numberedImage(21, 33, 5));
             return hashOfFile(scratch + ".png", emptyHash);
         }},
        {"fail to open", [&](Scratch) { return failToOpen(files.broken); }},
    };
}

std::vector<Job> jobsOver(const JobFiles& files) {
    using Scratch = const std::string&;
    return {
        {"decode RGB", [&](Scratch) { return decode(files.clip, PixelFormat::RGB); }},
        {"write a clip", [](Scratch scratch) { return writeClip(scratch + ".mp4"); }},
        {"read an image", [&](Scratch scratch) { return convertImage(files.image, scratch); }},
        {"fail to open", [&](Scratch) { return failToOpen(files.broken); }},
        {"decode NV12", [&](Scratch) { return decode(files.stream, PixelFormat::NV12); }},
        {"decode sound", [&](Scratch) { return decodeSound(files.clip); }},
        {"seek", [&](Scratch) { return seek(files.clip); }},
        {"read by number", [&](Scratch) { return readByNumber(files.stream); }},
        {"read sound by number", [&](Scratch) { return readSoundByNumber(files.clip); }},
    };
}

} // namespace tio::test
