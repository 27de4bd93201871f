// The reading half of work.h by FFmpeg called directly, as somebody writes it who knows FFmpeg: one
// frame and one buffer used again and again, as many threads as the machine has. What no library
// over FFmpeg can be faster than, but by doing less.

#include "../micro/DirectDecoding.h"
#include "libav.h"
#include "support/Demuxing.h"

#include <algorithm>
#include <vector>

namespace tio::bench {

namespace {

/// The pictures of a clip, one after the other.
class Pictures {
public:
    explicit Pictures(const std::string& path)
        : demuxer(path),
          decoder(openDecoder(demuxer.stream())),
          frame(test::checkFound(av_frame_alloc(), "frame")) {}

    /// Null at the end.
    const AVFrame* next() {
        while (true) {
            const int result = avcodec_receive_frame(decoder.get(), frame.get());
            if (result == 0)
                return frame.get();
            if (result == AVERROR_EOF)
                return nullptr;
            avcodec_send_packet(decoder.get(), demuxer.readPacket() ? &demuxer.packet() : nullptr);
        }
    }

    void seekToOrBefore(int64_t pts) {
        demuxer.seekToOrBefore(pts);
        avcodec_flush_buffers(decoder.get());
    }

    [[nodiscard]] const AVCodecContext& codec() const { return *decoder; }

private:
    test::VideoDemuxer demuxer;
    test::CodecPointer decoder;
    test::FramePointer frame;
};

std::vector<int64_t> sortedTimes(const std::string& path) {
    test::VideoDemuxer demuxer(path);
    std::vector<int64_t> times;
    while (demuxer.readPacket()) {
        if ((demuxer.packet().flags & AV_PKT_FLAG_DISCARD) == 0)
            times.push_back(demuxer.packet().pts);
    }
    std::sort(times.begin(), times.end());
    return times;
}

enum class OnTheWay { Skip, Convert };

template <OnTheWay onTheWay>
int64_t seek(const Job& job) {
    // The index is the file that the library stores: a number, then the times.
    const Bytes bytes(job.target);
    const auto* numbers = reinterpret_cast<const int64_t*>(bytes.data());
    const std::vector<int64_t> times(numbers + 1, numbers + bytes.size() / sizeof(int64_t));
    Pictures pictures(job.source);
    Converter converter(pictures.codec(), AV_PIX_FMT_RGB24);
    int64_t count = 0;
    for (const int64_t number : framesToSeek(static_cast<int64_t>(times.size()))) {
        const int64_t wanted = times[static_cast<size_t>(number)];
        pictures.seekToOrBefore(wanted);
        while (const AVFrame* frame = pictures.next()) {
            const bool found = frame->best_effort_timestamp >= wanted;
            if (found || onTheWay == OnTheWay::Convert)
                converter.convert(*frame);
            if (found) {
                ++count;
                break;
            }
        }
    }
    return count;
}

/// The value of one sample, as a fraction of full scale.
float sampleOf(const AVFrame& frame, int channel, int index, int channels) {
    const auto interleaved = static_cast<size_t>(index * channels + channel);
    const auto planar = static_cast<size_t>(index);
    switch (frame.format) {
    case AV_SAMPLE_FMT_FLTP:
        return reinterpret_cast<const float*>(frame.extended_data[channel])[planar];
    case AV_SAMPLE_FMT_S16:
        return static_cast<float>(reinterpret_cast<const int16_t*>(frame.data[0])[interleaved]) *
               (1.0F / 32768.0F);
    case AV_SAMPLE_FMT_S32:
        return static_cast<float>(reinterpret_cast<const int32_t*>(frame.data[0])[interleaved]) *
               (1.0F / 2147483648.0F);
    default:
        throw std::runtime_error("no such samples are measured");
    }
}

} // namespace

test::InputPointer openInput(const std::string& path) {
    AVFormatContext* opened = nullptr;
    test::check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), "opening " + path);
    test::InputPointer input(opened);
    test::check(avformat_find_stream_info(opened, nullptr), "stream info of " + path);
    return input;
}

namespace {

int64_t decode(const Job& job, AVPixelFormat target, int64_t most) {
    Pictures pictures(job.source);
    Converter converter(pictures.codec(), target);
    int64_t count = 0;
    while (count < most) {
        const AVFrame* frame = pictures.next();
        if (frame == nullptr)
            break;
        converter.convert(*frame);
        ++count;
    }
    return count;
}

/// In the colours that the clip is tagged with.
int64_t decodeTagged(const Job& job, AVPixelFormat target, int width, int height) {
    Pictures pictures(job.source);
    const AVFrame* frame = pictures.next(); // before it the decoder knows no colours
    const AVCodecContext& codec = pictures.codec();
    Converter converter(codec, target, width == 0 ? codec.width : width,
                        height == 0 ? codec.height : height);
    int64_t count = 0;
    for (; frame != nullptr; frame = pictures.next(), ++count)
        converter.convert(*frame);
    return count;
}

int64_t batch(const Job& job) {
    const auto frames = framesOfBatch(static_cast<int64_t>(sortedTimes(job.source).size()));
    Pictures pictures(job.source);
    const AVFrame* frame = pictures.next();
    const AVCodecContext& codec = pictures.codec();
    Converter converter(codec, AV_PIX_FMT_RGB24, codec.width, codec.height);
    const auto row = size_t{3} * static_cast<size_t>(codec.width);
    std::vector<uint8_t> memory(frames.size() * row * static_cast<size_t>(codec.height));
    uint8_t* to = memory.data();
    auto wanted = frames.begin();
    for (int64_t number = 0; frame != nullptr && wanted != frames.end();
         frame = pictures.next(), ++number)
        for (; wanted != frames.end() && *wanted == number; ++wanted) {
            converter.convert(*frame);
            for (int y = 0; y < codec.height; ++y, to += row)
                std::copy_n(converter.data() + std::ptrdiff_t{y} * converter.stride(), row, to);
        }
    return wanted - frames.begin();
}

int64_t decodeSound(const Job& job) {
    const auto input = openInput(job.source);
    const int stream = test::check(
        av_find_best_stream(input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0), "sound");
    const auto decoder = openDecoder(*input->streams[stream]);
    const test::PacketPointer packet(test::checkFound(av_packet_alloc(), "packet"));
    const test::FramePointer frame(test::checkFound(av_frame_alloc(), "frame"));
    std::vector<float> block;
    int64_t samples = 0;
    bool more = true;
    while (more) {
        more = av_read_frame(input.get(), packet.get()) >= 0;
        if (more && packet->stream_index != stream) {
            av_packet_unref(packet.get());
            continue;
        }
        avcodec_send_packet(decoder.get(), more ? packet.get() : nullptr);
        av_packet_unref(packet.get());
        while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
            block.resize(static_cast<size_t>(frame->nb_samples * soundChannels));
            for (int i = 0; i < frame->nb_samples; ++i)
                for (int channel = 0; channel < soundChannels; ++channel)
                    block[static_cast<size_t>(i * soundChannels + channel)] =
                        sampleOf(*frame, channel, i, soundChannels);
            samples += frame->nb_samples;
        }
    }
    return samples;
}

int64_t readImages(const Job& job) {
    int64_t pixels = 0;
    for (int i = 0; i < imageRepeats; ++i) {
        Pictures pictures(job.source);
        const AVFrame* frame = pictures.next();
        Converter converter(pictures.codec(), AV_PIX_FMT_RGB24);
        converter.convert(*test::checkFound(frame, "picture"));
        pixels += int64_t{frame->width} * frame->height;
    }
    return pixels;
}

} // namespace

void addReading(Tasks& tasks) {
    constexpr int64_t all = INT64_MAX;
    tasks["first-frame"] = [](const Job& job) { return decode(job, AV_PIX_FMT_RGB24, 1); };
    tasks["decode-rgb"] = [](const Job& job) { return decode(job, AV_PIX_FMT_RGB24, all); };
    tasks["decode-nv12"] = [](const Job& job) { return decode(job, AV_PIX_FMT_NV12, all); };
    tasks["tagged-rgb"] = [](const Job& job) { return decodeTagged(job, AV_PIX_FMT_RGB24, 0, 0); };
    tasks["small-rgb"] = [](const Job& job) {
        return decodeTagged(job, AV_PIX_FMT_RGB24, smallWidth, smallHeight);
    };
    tasks["deep-rgb"] = [](const Job& job) { return decodeTagged(job, AV_PIX_FMT_RGB48, 0, 0); };
    tasks["batch"] = batch;
    tasks["index"] = [](const Job& job) {
        return static_cast<int64_t>(sortedTimes(job.source).size());
    };
    tasks["seek"] = seek<OnTheWay::Skip>;
    tasks["seek-converting"] = seek<OnTheWay::Convert>;
    tasks["decode-sound"] = decodeSound;
    tasks["read-image"] = readImages;
}

} // namespace tio::bench
