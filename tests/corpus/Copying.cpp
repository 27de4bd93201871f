#include "Direct.h"
#include "Entries.h"
#include "ffmpeg_compat.h"
#include "support/Oracle.h"

#include <TARN/videoio/AudioStreamDecoder.h>
#include <TARN/videoio/AudioStreamEncoder.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/OutputStream.h>
#include <TARN/videoio/VideoStreamDecoder.h>
#include <TARN/videoio/VideoStreamEncoder.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace tio::survey {

namespace {

using ffmpeg::InputFormatContext;
using ffmpeg::OutputFormatContext;
using ffmpeg::OutputStream;

// ---- packets as they are ------------------------------------------------------------------------

/// One stream on its way; a context of its own keeps the packets of others from being dropped.
struct Copy {
    explicit Copy(const std::string& path, int stream,
                  const std::shared_ptr<OutputFormatContext>& output)
        : from(std::make_shared<InputFormatContext>(path), stream),
          to(output, from.getUnitTime()),
          next(from.getNextPacket()) {}

    ffmpeg::InputStream from;
    OutputStream to;
    std::shared_ptr<ffmpeg::InputPacket> next;
};

/// The best streams of pictures and sound that have packets; nothing else goes into an MP4.
std::vector<int> streamsToCopy(const std::string& path) {
    const LibraryClock::Rest rest;
    std::vector<int> streams;
    for (const AVMediaType type : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}) {
        const auto input = openDirectly(path);
        const int best = av_find_best_stream(input.get(), type, -1, -1, nullptr, 0);
        if (best >= 0 && !packetsOf(*input, best).empty())
            streams.push_back(best);
    }
    return streams;
}

/// Whether some packet has no time: MP4 has to have both, and the library does not make them up.
bool lackTimes(const std::string& path, const std::vector<int>& streams) {
    const LibraryClock::Rest rest;
    for (const int stream : streams) {
        const auto input = openDirectly(path);
        for (const DirectPacket& packet : packetsOf(*input, stream)) {
            if (packet.pts == AV_NOPTS_VALUE || packet.dts == AV_NOPTS_VALUE)
                return true;
        }
    }
    return false;
}

int64_t microseconds(const ffmpeg::InputPacket& packet) {
    const auto& raw = packet.getPacket();
    const int64_t time = raw.dts != AV_NOPTS_VALUE ? raw.dts : raw.pts;
    return av_rescale_q(time, packet.getStream().time_base, {1, 1000000});
}

Copy* earliest(std::vector<std::unique_ptr<Copy>>& copies) {
    Copy* first = nullptr;
    for (const auto& copy : copies) {
        if (copy->next &&
            (first == nullptr || microseconds(*copy->next) < microseconds(*first->next)))
            first = copy.get();
    }
    return first;
}

/// What is in a packet, without the times, which a copy shifts.
std::string contentLine(const DirectPacket& packet) {
    return std::to_string(packet.size) + " bytes " + std::to_string(packet.hash);
}

/// Without packets there is no file. Its streams are in the order of their first packets.
void tellContents(const std::string& path, Facts& facts) {
    if (!std::filesystem::exists(path))
        return;
    for (const AVMediaType type : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}) {
        const auto input = openDirectly(path);
        const int best = av_find_best_stream(input.get(), type, -1, -1, nullptr, 0);
        if (best < 0)
            continue;
        for (const DirectPacket& packet : packetsOf(*input, best))
            facts.push_back(contentLine(packet));
    }
}

void copyPackets(const std::string& path, const std::vector<int>& streams,
                 const std::string& target) {
    const auto output = std::make_shared<OutputFormatContext>(target);
    std::vector<std::unique_ptr<Copy>> copies;
    for (const int stream : streams)
        copies.push_back(std::make_unique<Copy>(path, stream, output));
    while (Copy* copy = earliest(copies)) {
        copy->to.writePacket(*copy->next);
        copy->next = copy->from.getNextPacket();
    }
    copies.clear();
    output->finish();
}

/// The same by FFmpeg's muxer alone, which turns Annex-B packets into those of MP4.
void copyDirectly(const std::string& path, const std::vector<int>& streams,
                  const std::string& target) {
    const auto input = openDirectly(path);
    AVFormatContext* made = nullptr;
    test::check(avformat_alloc_output_context2(&made, nullptr, "mp4", target.c_str()), "muxer");
    const test::OutputPointer output(made);
    for (const int stream : streams) {
        AVStream* added = test::checkFound(avformat_new_stream(made, nullptr), "stream");
        test::check(avcodec_parameters_copy(added->codecpar, input->streams[stream]->codecpar),
                    "parameters");
        added->codecpar->codec_tag = 0;
    }
    test::check(avio_open(&made->pb, target.c_str(), AVIO_FLAG_WRITE), "file");
    test::check(avformat_write_header(made, nullptr), "header");
    const test::PacketPointer packet(test::checkFound(av_packet_alloc(), "packet"));
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const auto found = std::find(streams.begin(), streams.end(), packet->stream_index);
        if (found == streams.end() || packet->size == 0) {
            av_packet_unref(packet.get());
            continue;
        }
        const auto target_stream = static_cast<std::size_t>(found - streams.begin());
        av_packet_rescale_ts(packet.get(), input->streams[packet->stream_index]->time_base,
                             made->streams[target_stream]->time_base);
        packet->stream_index = static_cast<int>(target_stream);
        test::check(av_interleaved_write_frame(made, packet.get()), "packet");
    }
    test::check(av_write_trailer(made), "trailer");
}

// ---- pictures and sound, encoded again ----------------------------------------------------------

constexpr int mostPictures = 12;
constexpr int mostBlocks = 12;

/// The next picture or block, past packets that are damaged.
template <typename Decoder>
auto readOn(Decoder& decoder) {
    constexpr int mostFailures = 16; // in a row
    for (int failures = 0;; ++failures) {
        try {
            return decoder.readNextFrame();
        } catch (const tio::Exception&) {
            if (failures == mostFailures)
                throw;
        }
    }
}

int transcodePictures(const std::string& path, const std::string& target) {
    ffmpeg::VideoStreamDecoder decoder(std::make_shared<InputFormatContext>(path),
                                       ffmpeg::PixelFormat::RGB);
    auto frame = readOn(decoder);
    if (!frame.frame)
        return 0;
    const auto output = std::make_shared<OutputFormatContext>(target);
    int written = 0;
    {
        auto image = frame.frame->toRgb();
        const Vec<int, 2> size(image.rows(), image.cols());
        ffmpeg::VideoStreamEncoder encoder(output, size, {1, 25});
        for (; frame.frame && written < mostPictures; frame = readOn(decoder)) {
            image = frame.frame->toRgb();
            if (image.rows() == size[0] && image.cols() == size[1])
                encoder.writeNextFrame(image, ffmpeg::Rational(written++, 25));
        }
    }
    output->finish();
    return written;
}

int transcodeSound(const std::string& path, const std::string& target) {
    ffmpeg::AudioStreamDecoder decoder(std::make_shared<InputFormatContext>(path));
    auto block = readOn(decoder);
    if (block.samples.count == 0)
        return 0;
    const auto output = std::make_shared<OutputFormatContext>(target);
    int written = 0;
    {
        ffmpeg::AudioStreamEncoder encoder(output, block.channelLayout, block.sampleRate, 0);
        const auto width = static_cast<int>(encoder.getFrameWidth());
        for (; block.samples.count != 0 && written < mostBlocks; block = readOn(decoder)) {
            // Of the length that the encoder wants: the block's samples, and silence after them.
            ffmpeg::AudioPacketEncoder::Samples samples(Vec<int, 2>(width, block.samples.cols()));
            std::fill_n(samples.data(), samples.count, 0.0F);
            std::copy_n(block.samples.data(), std::min(block.samples.count, samples.count),
                        samples.data());
            encoder.writeNextFrame(samples,
                                   ffmpeg::Rational(int64_t{written++} * width, block.sampleRate));
        }
    }
    output->finish();
    return written;
}

/// How many pictures FFmpeg, called directly, finds in what was written.
int picturesIn(const std::string& path) {
    const LibraryClock::Rest rest;
    test::OracleOptions options;
    options.wanted = [](std::size_t) { return false; };
    return static_cast<int>(test::oracleFrames(path, options).size());
}

int blocksIn(const std::string& path) {
    const LibraryClock::Rest rest;
    const auto input = openDirectly(path);
    return static_cast<int>(packetsOf(*input, 0).size());
}

std::string countText(const std::string& what, int count) {
    return std::to_string(count) + " " + what;
}

} // namespace

Verdict remux(const std::string& path, const std::string& folder) {
    const std::string target = fileIn(folder, "copy.mp4");
    const std::string other = fileIn(folder, "direct.mp4");
    std::filesystem::remove(target);
    std::filesystem::remove(other);
    const auto streams = accountOf([&](Facts&) { InputFormatContext{path}; }).failure
                             ? std::vector<int>()
                             : streamsToCopy(path);
    auto ours = accountOf([&](Facts&) {
        const InputFormatContext named(path); // tells of a file that cannot be opened
        copyPackets(path, streams, target);
    });
    if (ours.failure && !ours.foreign && lackTimes(path, streams))
        return {Outcome::Refused, "packets without times: " + *ours.failure};
    auto direct = directAccountOf([&](Facts& facts) {
        static_cast<void>(openDirectly(path));
        if (!streams.empty())
            copyDirectly(path, streams, other);
        tellContents(other, facts);
    });
    // What FFmpeg writes and cannot read back, as a stream of no known size, the library writes
    // too.
    if (!ours.failure) {
        auto written = directAccountOf([&](Facts& facts) { tellContents(target, facts); });
        written.foreign = false;
        ours = written;
    }
    return judge(ours, direct);
}

Verdict transcode(const std::string& path, const std::string& folder) {
    const std::string target = fileIn(folder, "transcoded.mp4");
    Account direct;
    const auto ours = accountOf([&](Facts& facts) {
        const InputFormatContext input(path);
        if (input.hasVideoStream() != 0) {
            const int written = transcodePictures(path, target);
            direct.facts.push_back(countText("pictures", written));
            facts.push_back(countText("pictures", written > 0 ? picturesIn(target) : 0));
        }
        if (input.hasAudioStream() != 0) {
            const int written = transcodeSound(path, target);
            direct.facts.push_back(countText("blocks", written));
            // The encoder begins with a block of its own.
            facts.push_back(countText("blocks", written > 0 ? blocksIn(target) - 1 : 0));
        }
    });
    direct.failure = ours.failure; // nothing to compare with: see the note
    return judge(ours, direct);
}

} // namespace tio::survey
