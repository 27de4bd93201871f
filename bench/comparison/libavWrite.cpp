// The writing half of work.h by FFmpeg called directly, with the settings that the library has.

#include "libav.h"

#include <array>
#include <thread>
#include <vector>

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace tio::bench {

namespace {

/// An MP4 file of one encoded stream.
class EncodedFile {
public:
    EncodedFile(const std::string& path, test::CodecPointer openedEncoder)
        : encoder(std::move(openedEncoder)), packet(test::checkFound(av_packet_alloc(), "packet")) {
        AVFormatContext* made = nullptr;
        test::check(avformat_alloc_output_context2(&made, nullptr, "mp4", path.c_str()), "output");
        output.reset(made);
        stream = test::checkFound(avformat_new_stream(made, nullptr), "stream");
        stream->time_base = encoder->time_base;
        test::check(avcodec_parameters_from_context(stream->codecpar, encoder.get()), "parameters");
        test::check(avio_open(&made->pb, path.c_str(), AVIO_FLAG_WRITE), "opening " + path);
        test::check(avformat_write_header(made, nullptr), "header");
    }

    /// Null ends the file.
    void write(const AVFrame* frame) {
        test::check(avcodec_send_frame(encoder.get(), frame), "encoding");
        while (avcodec_receive_packet(encoder.get(), packet.get()) == 0) {
            av_packet_rescale_ts(packet.get(), encoder->time_base, stream->time_base);
            packet->stream_index = 0;
            test::check(av_interleaved_write_frame(output.get(), packet.get()), "writing");
        }
        if (frame == nullptr)
            test::check(av_write_trailer(output.get()), "trailer");
    }

    [[nodiscard]] const AVCodecContext& codec() const { return *encoder; }

private:
    test::CodecPointer encoder;
    test::PacketPointer packet;
    test::OutputPointer output;
    AVStream* stream = nullptr;
};

test::CodecPointer newEncoder(AVCodecID id) {
    const AVCodec* codec = test::checkFound(avcodec_find_encoder(id), "encoder");
    test::CodecPointer encoder(test::checkFound(avcodec_alloc_context3(codec), "encoder context"));
    encoder->thread_count = static_cast<int>(std::thread::hardware_concurrency());
    encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    encoder->max_b_frames = 0;
    return encoder;
}

test::FramePointer newFrame() {
    return test::FramePointer(test::checkFound(av_frame_alloc(), "frame"));
}

test::FramePointer newPicture(int width, int height, AVPixelFormat format) {
    auto frame = newFrame();
    frame->width = width;
    frame->height = height;
    frame->format = format;
    test::check(av_frame_get_buffer(frame.get(), 0), "picture");
    return frame;
}

test::ScalerPointer scalerTo(AVPixelFormat format) {
    return test::ScalerPointer(sws_getContext(rawWidth, rawHeight, AV_PIX_FMT_RGB24, rawWidth,
                                              rawHeight, format, SWS_BICUBIC, nullptr, nullptr,
                                              nullptr));
}

void convert(SwsContext& scaler, const uint8_t* pixels, AVFrame& frame) {
    const std::array<const uint8_t*, 4> planes = {pixels};
    const std::array<int, 4> strides = {3 * rawWidth};
    sws_scale(&scaler, planes.data(), strides.data(), 0, rawHeight, frame.data, frame.linesize);
}

int64_t encodePictures(const Job& job) {
    const Bytes raw(job.source);
    auto encoder = newEncoder(AV_CODEC_ID_H264);
    encoder->width = rawWidth;
    encoder->height = rawHeight;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = {1, 25};
    AVDictionary* options = nullptr;
    av_dict_set(&options, "preset", "veryfast", 0);
    av_dict_set(&options, "level", "51", 0);
    const int opened = avcodec_open2(encoder.get(), encoder->codec, &options);
    av_dict_free(&options);
    test::check(opened, "opening the encoder");
    EncodedFile file(job.target, std::move(encoder));
    const auto frame = newPicture(rawWidth, rawHeight, AV_PIX_FMT_YUV420P);
    const auto scaler = scalerTo(AV_PIX_FMT_YUV420P);
    const int pictures = rawPicturesIn(raw);
    for (int n = 0; n < rawRounds * pictures; ++n) {
        test::check(av_frame_make_writable(frame.get()), "picture");
        convert(*scaler, raw.data() + rawPictureBytes * static_cast<size_t>(n % pictures), *frame);
        frame->pts = n;
        file.write(frame.get());
    }
    file.write(nullptr);
    return rawRounds * pictures;
}

int64_t encodeSound(const Job& job) {
    const Bytes raw(job.source);
    const auto* samples = reinterpret_cast<const float*>(raw.data());
    const auto rows = static_cast<int64_t>(raw.size() / sizeof(float) / soundChannels);
    auto encoder = newEncoder(AV_CODEC_ID_AAC);
    encoder->sample_rate = soundRate;
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    av_channel_layout_default(&encoder->ch_layout, soundChannels);
    encoder->time_base = {1, soundRate};
    test::check(avcodec_open2(encoder.get(), encoder->codec, nullptr), "opening the encoder");
    EncodedFile file(job.target, std::move(encoder));
    const int block = file.codec().frame_size;
    const auto frame = newFrame();
    frame->nb_samples = block;
    frame->format = AV_SAMPLE_FMT_FLTP;
    frame->sample_rate = soundRate;
    av_channel_layout_default(&frame->ch_layout, soundChannels);
    test::check(av_frame_get_buffer(frame.get(), 0), "block");
    int64_t row = 0;
    for (; row + block <= rows; row += block) {
        test::check(av_frame_make_writable(frame.get()), "block");
        for (int channel = 0; channel < soundChannels; ++channel) {
            auto* plane = reinterpret_cast<float*>(frame->data[channel]);
            for (int i = 0; i < block; ++i)
                plane[i] = samples[(row + i) * soundChannels + channel];
        }
        frame->pts = row;
        file.write(frame.get());
    }
    file.write(nullptr);
    return row;
}

int64_t remux(const Job& job) {
    const auto input = openInput(job.source);
    AVFormatContext* made = nullptr;
    test::check(avformat_alloc_output_context2(&made, nullptr, "mp4", job.target.c_str()),
                "output");
    const test::OutputPointer output(made);
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        AVStream* stream = test::checkFound(avformat_new_stream(made, nullptr), "stream");
        test::check(avcodec_parameters_copy(stream->codecpar, input->streams[i]->codecpar), "copy");
        stream->codecpar->codec_tag = 0;
        stream->time_base = input->streams[i]->time_base;
    }
    test::check(avio_open(&made->pb, job.target.c_str(), AVIO_FLAG_WRITE), "opening");
    test::check(avformat_write_header(made, nullptr), "header");
    const test::PacketPointer packet(test::checkFound(av_packet_alloc(), "packet"));
    int64_t count = 0;
    for (; av_read_frame(input.get(), packet.get()) >= 0; ++count) {
        const int stream = packet->stream_index;
        av_packet_rescale_ts(packet.get(), input->streams[stream]->time_base,
                             made->streams[stream]->time_base);
        packet->pos = -1;
        test::check(av_interleaved_write_frame(made, packet.get()), "writing");
    }
    test::check(av_write_trailer(made), "trailer");
    return count;
}

bool isPng(const std::string& path) {
    return path.size() > 4 && path.compare(path.size() - 4, 4, ".png") == 0;
}

void writeImage(const std::string& path, const uint8_t* pixels) {
    const AVPixelFormat format = isPng(path) ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_YUVJ420P;
    auto encoder = newEncoder(isPng(path) ? AV_CODEC_ID_PNG : AV_CODEC_ID_MJPEG);
    encoder->width = rawWidth;
    encoder->height = rawHeight;
    encoder->pix_fmt = format;
    encoder->time_base = {1, 1};
    encoder->thread_count = 1; // with more, a single picture comes out at the end only
    test::check(avcodec_open2(encoder.get(), encoder->codec, nullptr), "opening the encoder");
    const auto frame = newPicture(rawWidth, rawHeight, format);
    if (format == AV_PIX_FMT_RGB24)
        for (int row = 0; row < rawHeight; ++row)
            std::copy_n(pixels + size_t{3} * rawWidth * static_cast<size_t>(row), 3 * rawWidth,
                        frame->data[0] + row * frame->linesize[0]);
    else
        convert(*scalerTo(format), pixels, *frame);
    const test::PacketPointer packet(test::checkFound(av_packet_alloc(), "packet"));
    test::check(avcodec_send_frame(encoder.get(), frame.get()), "encoding");
    test::check(avcodec_receive_packet(encoder.get(), packet.get()), "encoding");
    std::FILE* const file = test::checkFound(std::fopen(path.c_str(), "wb"), "file");
    std::fwrite(packet->data, 1, static_cast<size_t>(packet->size), file);
    std::fclose(file);
}

int64_t writeImages(const Job& job) {
    const Bytes raw(job.source);
    for (int i = 0; i < imageRepeats; ++i)
        writeImage(job.target, raw.data());
    return imageRepeats;
}

} // namespace

void addWriting(Tasks& tasks) {
    tasks["encode-pictures"] = encodePictures;
    tasks["encode-sound"] = encodeSound;
    tasks["remux"] = remux;
    tasks["write-image"] = writeImages;
}

} // namespace tio::bench

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_ERROR);
    tio::bench::Tasks tasks;
    tio::bench::addReading(tasks);
    tio::bench::addWriting(tasks);
    return tio::bench::runTask(argc, argv, tasks);
}
