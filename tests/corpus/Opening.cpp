#include "Direct.h"
#include "Entries.h"
#include "support/Oracle.h"

#include <TARN/videoio/H264Helpers.h>
#include <TARN/videoio/InputStream.h>

#include <memory>

namespace tio::survey {

namespace {

using ffmpeg::InputFormatContext;

std::string streamsText(int count, const std::string& container) {
    return std::to_string(count) + " streams in " + container;
}

Account openedDirectly(const std::string& path) {
    return directAccountOf([&](Facts& facts) {
        const auto input = openDirectly(path);
        facts.push_back(streamsText(static_cast<int>(input->nb_streams), input->iformat->name));
    });
}

// Whoever opens many files has to learn which one failed.
Verdict judgeOpening(const std::string& path, const Account& ours) {
    const Verdict verdict = judge(ours, openedDirectly(path));
    if (verdict.outcome == Outcome::Refused && ours.failure->find(path) == std::string::npos)
        return {Outcome::Differs, "the failure does not name the file: " + *ours.failure};
    return verdict;
}

void tellOpened(const InputFormatContext& input, Facts& facts) {
    facts.push_back(streamsText(input.getStreamCount(), input.getContainerName()));
}

std::string bytesText(const uint8_t* bytes, std::size_t count) {
    return std::to_string(count) + " bytes " + std::to_string(test::hashOf(bytes, count));
}

std::string streamText(int type, const std::string& codec, const std::string& duration, int width,
                       int height, const std::string& extradata, const std::string& unitTime,
                       int turns) {
    return "type " + std::to_string(type) + ", " + codec + ", duration " + duration + ", " +
           std::to_string(width) + "x" + std::to_string(height) + ", extradata " + extradata +
           ", unit " + unitTime + ", turned " + std::to_string(turns);
}

void tellStreams(const std::string& path, Facts& facts) {
    const auto input = std::make_shared<InputFormatContext>(path);
    facts.push_back("video " + std::to_string(input->hasVideoStream()) + ", sound " +
                    std::to_string(input->hasAudioStream()));
    for (int i = 0; i < input->getStreamCount(); ++i) {
        int width = 0;
        int height = 0;
        input->getResolutionOfStream(i, width, height);
        const auto extradata = input->getExtradataOfStream(i);
        ffmpeg::InputStream stream(input, i);
        facts.push_back(streamText(
            static_cast<int>(input->getTypeOfStream(i)), input->getCodecNameOfStream(i),
            input->hasDurationOfStream(i) ? timeText(input->getDurationOfStream(i)) : "unknown",
            width, height, bytesText(extradata.data(), extradata.size()),
            timeText(stream.getUnitTime()), ffmpeg::getStreamRotation(stream.getStream())));
    }
}

ffmpeg::StreamType typeOf(AVMediaType type) {
    switch (type) {
    case AVMEDIA_TYPE_VIDEO:
        return ffmpeg::StreamType::Video;
    case AVMEDIA_TYPE_AUDIO:
        return ffmpeg::StreamType::Audio;
    case AVMEDIA_TYPE_SUBTITLE:
        return ffmpeg::StreamType::Subtitle;
    case AVMEDIA_TYPE_DATA:
        return ffmpeg::StreamType::Data;
    case AVMEDIA_TYPE_ATTACHMENT:
        return ffmpeg::StreamType::Attachment;
    default:
        return ffmpeg::StreamType::Unknown;
    }
}

/// Containers but MP4 and its family may state a turn, which the library leaves alone.
int turnsOf(const AVFormatContext& input, const AVStream& stream) {
    const bool mp4 = std::string(input.iformat->name).compare(0, 4, "mov,") == 0;
    return mp4 ? test::oracleQuarterTurns(&stream) : 0;
}

void tellStreamsDirectly(const std::string& path, Facts& facts) {
    const auto input = openDirectly(path);
    const auto has = [&](AVMediaType type) {
        return std::to_string(av_find_best_stream(input.get(), type, -1, -1, nullptr, 0) >= 0 ? 1
                                                                                              : 0);
    };
    facts.push_back("video " + has(AVMEDIA_TYPE_VIDEO) + ", sound " + has(AVMEDIA_TYPE_AUDIO));
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream& stream = *input->streams[i];
        const AVCodecParameters& codec = *stream.codecpar;
        const int turns = turnsOf(*input, stream);
        const bool probed = codec.codec_id != AV_CODEC_ID_NONE;
        const int width = probed ? codec.width : 0;
        const int height = probed ? codec.height : 0;
        facts.push_back(streamText(
            static_cast<int>(typeOf(codec.codec_type)), avcodec_get_name(codec.codec_id),
            stream.duration == AV_NOPTS_VALUE ? "unknown"
                                              : timeText(stream.duration, stream.time_base),
            turns % 2 == 1 ? height : width, turns % 2 == 1 ? width : height,
            bytesText(codec.extradata, static_cast<std::size_t>(codec.extradata_size)),
            timeText(1, stream.time_base), turns));
    }
}

void tellPackets(const std::string& path, Facts& facts) {
    const int count = InputFormatContext(path).getStreamCount();
    for (int i = 0; i < count; ++i) {
        const auto input = std::make_shared<InputFormatContext>(path);
        ffmpeg::InputStream stream(input, i);
        while (const auto packet = stream.getNextPacket())
            facts.push_back(lineOf(describe(packet->getPacket())));
        facts.push_back(input->getEndReason().kind == ffmpeg::EndReason::Kind::None
                            ? "goes on"
                            : "end of the stream");
    }
}

void tellPacketsDirectly(const std::string& path, Facts& facts) {
    const unsigned count = openDirectly(path)->nb_streams;
    for (unsigned i = 0; i < count; ++i) {
        const auto input = openDirectly(path);
        for (const DirectPacket& packet : packetsOf(*input, static_cast<int>(i)))
            facts.push_back(lineOf(packet));
        facts.emplace_back("end of the stream");
    }
}

} // namespace

Verdict open(const std::string& path, const std::string&) {
    return judgeOpening(
        path, accountOf([&](Facts& facts) { tellOpened(InputFormatContext(path), facts); }));
}

Verdict openWithOptions(const std::string& path, const std::string&) {
    ffmpeg::OpenOptions options;
    options.openTimeout = std::chrono::minutes(1);
    options.readTimeout = std::chrono::minutes(1);
    return judgeOpening(path, accountOf([&](Facts& facts) {
                            tellOpened(InputFormatContext(path, options), facts);
                        }));
}

Verdict info(const std::string& path, const std::string&) {
    return judge(accountOf([&](Facts& facts) { tellStreams(path, facts); }),
                 directAccountOf([&](Facts& facts) { tellStreamsDirectly(path, facts); }));
}

Verdict packets(const std::string& path, const std::string&) {
    return judge(accountOf([&](Facts& facts) { tellPackets(path, facts); }),
                 directAccountOf([&](Facts& facts) { tellPacketsDirectly(path, facts); }));
}

} // namespace tio::survey
