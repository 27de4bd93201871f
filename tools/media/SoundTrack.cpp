#include "media/SoundTrack.h"

#include <array>
#include <utility>

namespace tio::tool {

namespace {

using ffmpeg::Rational;

// FFmpeg's masks of the usual layouts by number of channels, for sources that state none.
int usualLayout(int channels) {
    constexpr std::array<int, 9> masks = {0, 0x4, 0x3, 0xb, 0x107, 0x37, 0x3f, 0x70f, 0x63f};
    return channels >= 0 && channels < static_cast<int>(masks.size())
               ? masks[static_cast<size_t>(channels)]
               : 0;
}

} // namespace

SoundTrack::SoundTrack(const std::string& url, const OutputClip& clip, Rational start)
    : output(clip), reader(url), first(reader.read()) {
    if (first.samples.count == 0) {
        atEnd = true; // announced or not, a stream without sound would keep the file from opening
        return;
    }
    const int channels = first.samples.cols();
    const int layout = first.channelLayout != 0 ? first.channelLayout : usualLayout(channels);
    output.write([&] {
        encoder =
            std::make_unique<ffmpeg::AudioPacketEncoder>(layout, first.sampleRate, Rational());
        stream = std::make_unique<ffmpeg::OutputStream>(output.context(), encoder->getUnitTime());
    });
    blocks.emplace(
        SoundBlocks::Format{first.sampleRate, channels, static_cast<int>(encoder->getFrameWidth())},
        start);
}

bool SoundTrack::readOn() {
    const auto frame = first.samples.count != 0 ? std::exchange(first, {}) : reader.read();
    if (frame.samples.count == 0)
        return false;
    blocks->add(frame);
    return true;
}

void SoundTrack::writeUpTo(Rational time) {
    while (!atEnd && blocks->endTime() <= time) {
        atEnd = !readOn();
        writeBlocks();
    }
}

void SoundTrack::finishAt(std::optional<Rational> end) {
    if (!blocks)
        return;
    if (end)
        blocks->setEnd(*end);
    while (!atEnd && (!end || blocks->endTime() < *end)) {
        atEnd = !readOn();
        writeBlocks();
    }
    while (const auto block = blocks->last())
        writeBlock(*block);
    output.write([&] { writePackets(encoder->flush()); });
}

void SoundTrack::writeBlocks() {
    while (const auto block = blocks->next())
        writeBlock(*block);
}

void SoundTrack::writeBlock(const SoundBlocks::Block& block) {
    output.write([&] { writePackets(encoder->writeNextFrame(block.samples, block.time)); });
}

void SoundTrack::writePackets(const std::vector<ffmpeg::OutputPacket>& packets) {
    for (const auto& packet : packets)
        stream->writePacket(packet);
}

} // namespace tio::tool
