#include "media/SoundSource.h"

#include "media/TimeList.h"

#include <algorithm>
#include <regex>
#include <utility>

namespace tio::tool {

namespace {

constexpr int64_t blockLength = 4096; // samples

/// The number of a text such as "48000samples".
std::optional<int64_t> numberIn(const std::string& text) {
    static const std::regex pattern(R"((\d{1,18}) ?samples)");
    std::smatch part;
    if (!std::regex_match(text, part, pattern))
        return std::nullopt;
    return std::stoll(part[1]);
}

} // namespace

void addSoundRange(CLI::App& command, SoundRange& range) {
    command
        .add_option("--from", range.from, "First time in seconds, or sample as 48000samples [0]")
        ->type_name("T");
    command.add_option("--to", range.to, "Up to this time or sample, without it [the end]")
        ->type_name("T");
}

void addSoundStream(CLI::App& command, std::optional<int>& stream) {
    command.add_option("--stream", stream, "Stream of the sound, as info numbers them [the best]")
        ->check(CLI::NonNegativeNumber)
        ->type_name("N");
}

SoundSource::SoundSource(std::string url, std::optional<int> stream) : input(std::move(url)) {
    decoding(input, ffmpeg::StreamType::Audio, stream, [&] {
        if (!canBeReadAgain(input)) {
            decoder = std::make_unique<ffmpeg::AudioStreamDecoder>(openOnce(input));
            first = decoder->readNextFrame();
            samplesPerSecond = first.sampleRate;
            channelCount = first.samples.cols();
            if (first.samples.count == 0)
                throw tio::Exception("there is no sound");
            return;
        }
        ffmpeg::SampleReaderOptions options;
        options.stream = stream.value_or(-1);
        reader.emplace(sourceOf(input), std::move(options));
        breaks = reader->index().timeBreaks();
        endSample = reader->sampleCount();
        samplesPerSecond = reader->sampleRate();
        channelCount = reader->channelCount();
    });
    if (reader)
        warnOfMissingEnd(openInput(input), reader->streamIndex(), reader->duration());
}

int64_t SoundSource::firstSampleFrom(const ffmpeg::Rational& time) const {
    if (time <= reader->startTime())
        return 0;
    if (reader->startTime() + reader->duration() <= time)
        return reader->sampleCount();
    const int64_t sample = reader->sampleAt(time);
    return reader->timeOfSample(sample) < time ? sample + 1 : sample;
}

void SoundSource::startAt(const ffmpeg::Rational& time) {
    if (reader)
        reading(input, [&] { nextSample = firstSampleFrom(time); });
}

int64_t SoundSource::sampleNamed(const std::string& text) const {
    if (const auto number = numberIn(text)) {
        if (*number > reader->sampleCount())
            throw Failure(ExitCode::Input, input,
                          "there are no more than " + std::to_string(reader->sampleCount()) +
                              " samples");
        return *number;
    }
    if (const auto time = parseTime(text))
        return reading(input, [&] { return firstSampleFrom(*time); });
    throw Failure(ExitCode::Usage, text, "write seconds, as 1.5, or a sample, as 48000samples");
}

void SoundSource::keepTo(const SoundRange& range) {
    if (range.from.empty() && range.to.empty())
        return;
    requireReadAgain(input);
    nextSample = range.from.empty() ? 0 : sampleNamed(range.from);
    endSample = range.to.empty() ? reader->sampleCount() : sampleNamed(range.to);
    if (endSample <= nextSample)
        throw Failure(ExitCode::Input, input, "there is no sound in that part");
}

SoundSource::Block SoundSource::next() {
    return reading(input, [&]() -> Block {
        if (decoder) {
            auto frame =
                first.samples.count != 0 ? std::exchange(first, {}) : decoder->readNextFrame();
            const bool changes = frame.samples.count != 0 && frame.samples.cols() != channelCount;
            if (changes || (frame.sampleRate != samplesPerSecond && frame.samples.count != 0))
                throw tio::Exception("the rate or the channels of the sound change");
            return {std::move(frame.samples), frame.timestamp};
        }
        int64_t end = std::min(nextSample + blockLength, endSample);
        if (nextSample >= end)
            return {};
        for (const auto& jump : breaks)
            if (jump.sample > nextSample)
                end = std::min(end, jump.sample);
        const int64_t begin = std::exchange(nextSample, end);
        return {reader->readSamples(begin, end - begin), reader->timeOfSample(begin)};
    });
}

} // namespace tio::tool
