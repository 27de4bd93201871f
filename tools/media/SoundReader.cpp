#include "media/SoundReader.h"

#include "media/Input.h"

#include <utility>

namespace tio::tool {

namespace {

// Unsigned 8-bit sound is handed out as it is stored: silence, 128, at about a half.
void centre(tio::Mat<float, 2, tio::MatOptions<1, 1>>& samples) {
    constexpr float silence = 128.0F / 255.0F;
    float* const values = samples.data();
    for (int i = 0; i < samples.count; ++i)
        values[i] = (values[i] - silence) * 2.0F;
}

bool bestAudioIsUnsigned(const ffmpeg::InputFormatContext& input) {
    return input.getCodecNameOfStream(input.findBestAudioStreamIndex()) == "pcm_u8";
}

} // namespace

SoundReader::SoundReader(std::string url) : input(std::move(url)) {
    const auto context = openInput(input);
    if (context->hasAudioStream() == 0)
        throw Failure(ExitCode::Input, input, "there is no sound");
    reading(input, [&] {
        unsignedSamples = bestAudioIsUnsigned(*context);
        decoder = std::make_unique<ffmpeg::AudioStreamDecoder>(context);
    });
}

ffmpeg::AudioPacketDecoder::Frame SoundReader::read() {
    auto frame = reading(input, [&] { return decoder->readNextFrame(); });
    if (unsignedSamples)
        centre(frame.samples);
    return frame;
}

} // namespace tio::tool
