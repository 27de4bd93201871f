#include "support/Demuxing.h"

namespace tio::test {

VideoDemuxer::VideoDemuxer(const std::string& path)
    : current(checkFound(av_packet_alloc(), "packet")) {
    AVFormatContext* opened = nullptr;
    check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), "opening " + path);
    input.reset(opened);
    check(avformat_find_stream_info(input.get(), nullptr), "stream info of " + path);
    index = check(av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0),
                  "video stream of " + path);
}

bool VideoDemuxer::seekToOrBefore(int64_t pts) {
    return av_seek_frame(input.get(), index, pts, AVSEEK_FLAG_BACKWARD) >= 0;
}

bool VideoDemuxer::readPacket() {
    do {
        av_packet_unref(current.get());
        if (av_read_frame(input.get(), current.get()) < 0)
            return false;
    } while (current->stream_index != index);
    return true;
}

} // namespace tio::test
