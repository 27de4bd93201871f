#pragma once

#include "media/OutputClip.h"
#include "media/SoundBlocks.h"
#include "media/SoundReader.h"

#include <TARN/videoio/AudioPacketEncoder.h>
#include <TARN/videoio/OutputStream.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tio::tool {

/// The sound of a clip on its way into another: decoded, cut into the encoder's blocks, encoded.
class SoundTrack {
public:
    /// @param start time in seconds from which on there is sound in the output
    /// @throws Failure naming the input or the output
    SoundTrack(const std::string& url, const OutputClip& clip, ffmpeg::Rational start);

    /// Writes the sound up to a time, or a little more.
    void writeUpTo(ffmpeg::Rational time);

    /// Writes the rest, up to `end` where one is given.
    void finishAt(std::optional<ffmpeg::Rational> end);

private:
    bool readOn();
    void writeBlocks();
    void writeBlock(const SoundBlocks::Block& block);
    void writePackets(const std::vector<ffmpeg::OutputPacket>& packets);

    const OutputClip& output;
    SoundReader reader;
    ffmpeg::AudioPacketDecoder::Frame first;
    std::unique_ptr<ffmpeg::AudioPacketEncoder> encoder; // packets held by the stream refer to it
    std::unique_ptr<ffmpeg::OutputStream> stream;
    std::optional<SoundBlocks> blocks;
    bool atEnd = false;
};

} // namespace tio::tool
