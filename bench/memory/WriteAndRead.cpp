#include "support/Ffmpeg.h"
#include "support/TemporaryFolder.h"
#include "tasks.h"

#include <TARN/videoio.h>

#include <cstdint>
#include <malloc.h>
#include <memory>
#include <stdexcept>
#include <string>

namespace tio::bench {

namespace {

using ffmpeg::InputFormatContext;
using ffmpeg::OutputFormatContext;
using ffmpeg::PixelFormat;
using ffmpeg::Rational;
using ffmpeg::VideoStreamDecoder;
using ffmpeg::VideoStreamEncoder;
using Image = ffmpeg::VideoPacketEncoder::Image;

constexpr int rows = 180;
constexpr int columns = 320;

// Gradients that move; a new picture each time, as from a camera.
Image picture(int64_t number) {
    Image image(tio::Vec<int, 2>(rows, columns));
    const auto shift = static_cast<int>(number % 256);
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column)
            image(row, column) = {static_cast<uint8_t>(column + shift),
                                  static_cast<uint8_t>(row - shift),
                                  static_cast<uint8_t>((row + column) / 2 + 3 * shift)};
    return image;
}

test::OutputPointer openMp4(const std::string& path) {
    AVFormatContext* opened = nullptr;
    test::check(avformat_alloc_output_context2(&opened, nullptr, "mp4", nullptr), "output");
    test::OutputPointer output(opened);
    test::check(avio_open(&output->pb, path.c_str(), AVIO_FLAG_WRITE), path);
    AVStream& stream = *test::checkFound(avformat_new_stream(opened, nullptr), "stream");
    stream.codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    stream.codecpar->codec_id = AV_CODEC_ID_MJPEG;
    stream.codecpar->width = columns;
    stream.codecpar->height = rows;
    stream.time_base = {1, 25};
    test::check(avformat_write_header(opened, nullptr), "header");
    return output;
}

// An MP4 file ends with a table of its packets, which FFmpeg has to keep until then. How many KiB
// it takes is seen here, where FFmpeg alone writes packets that are all the same.
double growthOfTable(std::ostream& csv, const std::string& path, int64_t count) {
    const test::OutputPointer output = openMp4(path);
    const int64_t tick = output->streams[0]->time_base.den / 25;
    test::PacketPointer packet(test::checkFound(av_packet_alloc(), "packet"));
    MemoryLog memory(csv, "packets written by FFmpeg alone", count);
    for (int64_t n = 0; n < count; ++n) {
        test::check(av_new_packet(packet.get(), 500), "packet");
        packet->pts = packet->dts = n * tick;
        packet->duration = tick;
        test::check(av_interleaved_write_frame(output.get(), packet.get()), "writing");
        memory.stepDone(n + 1);
    }
    test::check(av_write_trailer(output.get()), "completing");
    static_cast<void>(memory.report());
    return memory.growth();
}

bool write(std::ostream& csv, const std::string& path, int64_t count, double allowed) {
    const auto output = std::make_shared<OutputFormatContext>(path);
    MemoryLog memory(csv, "pictures written", count);
    {
        VideoStreamEncoder video(output, {rows, columns}, {1, 25});
        for (int64_t n = 0; n < count; ++n) {
            video.writeNextFrame(picture(n), {n, 25});
            memory.stepDone(n + 1);
        }
    }
    output->finish();
    return memory.report(allowed);
}

bool read(std::ostream& csv, const std::string& path, int64_t count) {
    VideoStreamDecoder video(std::make_shared<InputFormatContext>(path), PixelFormat::RGB);
    MemoryLog memory(csv, "pictures read", count);
    for (int64_t n = 0; n < count; ++n) {
        if (video.readNextFrame().timestamp != Rational(n, 25))
            throw std::runtime_error("not the pictures that were written");
        memory.stepDone(n + 1);
    }
    if (video.readNextFrame().frame)
        throw std::runtime_error("more pictures than were written");
    return memory.report();
}

} // namespace

bool writeAndRead(std::ostream& csv, int64_t count) {
    const test::TemporaryFolder folder;
    const std::string path = folder.file("hour.mp4");
    // Left to itself the C library keeps the growing table among other things for a while, and when
    // it moves out, a hole of its size stays. From 128 KiB on every block has pages of its own now.
    ::mallopt(M_MMAP_THRESHOLD, 128 << 10);
    const double table = growthOfTable(csv, folder.file("table.mp4"), count);
    const bool flat = write(csv, path, count, table);
    return read(csv, path, count) && flat;
}

} // namespace tio::bench
