#include "media/FrameSource.h"

#include "media/PictureDigest.h"

namespace tio::tool {

using Reached = ffmpeg::FrameReader::Reached;

namespace {

Reading endOfClip() {
    return {0, {}, "the end of the clip"};
}

} // namespace

DecoderSource::DecoderSource(const InputOptions& input)
    : decoder(openInput(input.url), ffmpeg::PixelFormat::RGB) {
    loadIndex(decoder, input.index);
}

Reading DecoderSource::readNext() {
    const auto picture = decoder.readNextFrame();
    if (!picture.frame)
        return endOfClip();
    return {pictureDigest(picture.frame->toRgb()), picture.timestamp, {}};
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
    return {pictureDigest(picture.frame->toRgb()), picture.time, {}};
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

} // namespace tio::tool
