#include "media/FrameSource.h"

#include "media/ImageWriter.h"
#include "media/PictureDigest.h"

#include <algorithm>

namespace tio::tool {

using Reached = ffmpeg::FrameReader::Reached;

namespace {

constexpr int64_t blockLength = 4096; // samples

Reading endOfClip() {
    return {0, {}, "the end of the clip"};
}

} // namespace

DecoderSource::DecoderSource(const InputOptions& input)
    : decoder(decoding(input.url, ffmpeg::StreamType::Video, {}, [&] {
          return ffmpeg::VideoStreamDecoder(openInput(input.url), ffmpeg::PixelFormat::RGB);
      })) {
    if (input.index && isFrameIndex(*input.index))
        throw Failure(ExitCode::Input, *input.index,
                      "an index of index --frames is for verify --reader");
    loadIndex(decoder, input.index);
}

Reading DecoderSource::readNext() {
    const auto picture = decoder.readNextFrame();
    if (!picture.frame)
        return endOfClip();
    return {digestOf(viewOf(picture.frame->toRgb())), picture.timestamp, {}};
}

Reading DecoderSource::readAt(int64_t number) {
    decoder.seek(number);
    return readNext();
}

Reading ReaderSource::readNext() {
    if (next >= reader.frameCount())
        return endOfClip();
    return readAt(next++);
}

Reading ReaderSource::readAt(int64_t number) {
    const auto picture = reader.readFrame(number);
    ++reached[static_cast<size_t>(picture.reached)];
    return {digestOf(picture.image.view()), picture.time, {}};
}

std::string ReaderSource::remark() const {
    const auto count = [this](Reached how) {
        return std::to_string(reached[static_cast<size_t>(how)]);
    };
    const bool damaged = reader.index().isDamaged();
    const std::string proof = reader.index().hasChecksums()
                                  ? count(Reached::Proven) + " frames proven by checksum"
                                  : count(Reached::Exact) + " frames from the key frame before, " +
                                        count(Reached::ExactAfterRetry) + " from an earlier one, " +
                                        count(Reached::Linear) + " from the start";
    return "reader:   " + proof + (damaged ? "; the stream is damaged" : "");
}

int64_t SoundBlockSource::frameCount() {
    return (reader.sampleCount() + blockLength - 1) / blockLength;
}

Reading SoundBlockSource::readNext() {
    return next < frameCount() ? readAt(next++) : endOfClip();
}

Reading SoundBlockSource::readAt(int64_t number) {
    const int64_t first = number * blockLength;
    const auto samples =
        reader.readSamples(first, std::min(blockLength, reader.sampleCount() - first));
    const auto* const bytes = reinterpret_cast<const uint8_t*>(samples.data());
    return {digestOf(bytes, samples.rows(), samples.cols() * static_cast<int>(sizeof(float))),
            reader.timeOfSample(first),
            {}};
}

std::string SoundBlockSource::unit() const {
    return "blocks of " + std::to_string(blockLength) + " samples";
}

} // namespace tio::tool
