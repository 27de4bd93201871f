#include "FfmpegReader.h"

#include "DirectDecoding.h"
#include "support/Demuxing.h"

namespace tio::bench {

int64_t readAllByFfmpeg(const std::string& path, int format) {
    test::VideoDemuxer demuxer(path);
    const auto decoder = openDecoder(demuxer.stream());
    const test::FramePointer frame(test::checkFound(av_frame_alloc(), "frame"));
    Converter converter(*decoder, static_cast<AVPixelFormat>(format));
    int64_t count = 0;
    bool more = true;
    while (more) {
        more = demuxer.readPacket();
        avcodec_send_packet(decoder.get(), more ? &demuxer.packet() : nullptr);
        for (; avcodec_receive_frame(decoder.get(), frame.get()) == 0; ++count)
            converter.convert(*frame);
    }
    return count;
}

} // namespace tio::bench
