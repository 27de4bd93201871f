#include "exact/write/copy/CopyInput.h"

#include "exact/run/readingFailure.h"
#include "input/InputAccess.h"

#include <algorithm>
#include <new>
#include <utility>

namespace tio::ffmpeg::detail {

CopyInput::CopyInput(const Source& origin) : source(origin), input(source) {
    AVIOContext* file = format().pb;
    bytes = file != nullptr ? std::max<int64_t>(avio_size(file), 0) : 0;
}

void CopyInput::choose(std::vector<int> streams) {
    chosen = std::move(streams);
    for (int number = 0; number < input.getStreamCount(); ++number) {
        if (std::find(chosen.begin(), chosen.end(), number) == chosen.end())
            stream(number).discard = AVDISCARD_ALL;
    }
}

AVFormatContext& CopyInput::format() {
    return InputAccess::contextOf(input);
}

AVStream& CopyInput::stream(int number) {
    return *format().streams[number];
}

PacketHandle CopyInput::read() {
    PacketHandle packet(av_packet_alloc());
    if (!packet)
        throw std::bad_alloc();
    if (!InputAccess::readNext(input, packet.get(), chosen)) {
        requireEnd(input, source);
        return nullptr;
    }
    reached = std::max(reached, packet->pos);
    return packet;
}

bool CopyInput::seek(int stream, int64_t ticks) {
    return seekOrStop(input, source, stream, ticks, AVSEEK_FLAG_BACKWARD);
}

} // namespace tio::ffmpeg::detail
