#include "exact/run/PacketSource.h"

#include "base/checks.h"
#include "exact/index/SourceIdentity.h"
#include "input/InputAccess.h"

#include <new>
#include <utility>

namespace tio::ffmpeg::detail {

PacketSource::PacketSource(std::shared_ptr<InputFormatContext> opened, int streamIndex)
    : origin(std::move(opened)), current(av_packet_alloc()), index(streamIndex) {
    if (!current)
        throw std::bad_alloc();
    reopen();
}

void PacketSource::reopen() {
    av_packet_unref(current.get());
    if (isPipe(origin->getUrl()))
        failPlainly("\"" + origin->getUrl() + "\" is a pipe, which cannot be opened once more");
    input = InputAccess::reopen(*origin);
    ++openings;
    if (index >= input->getStreamCount())
        failPlainly("\"" + origin->getUrl() + "\" has lost its stream " + std::to_string(index));
    for (int other = 0; other < input->getStreamCount(); ++other)
        if (other != index)
            input->getStream(other)->discard = AVDISCARD_ALL;
}

bool PacketSource::read() {
    av_packet_unref(current.get());
    if (input->getNextPacketForStream(current.get(), index))
        return true;
    // Taken for the end, it would make a shorter stream of this one.
    if (input->getEndReason().code == AVERROR(ENOMEM))
        checkResult(AVERROR(ENOMEM), {"PacketSource", 1});
    return false;
}

const AVFormatContext& PacketSource::format() const {
    return InputAccess::contextOf(*input);
}

bool PacketSource::seek(int64_t target, int flags) {
    av_packet_unref(current.get());
    ++seeks;
    return av_seek_frame(&InputAccess::contextOf(*input), index, target, flags) >= 0;
}

bool PacketSource::seekToTime(int64_t ticks) {
    return seek(ticks, AVSEEK_FLAG_BACKWARD);
}

bool PacketSource::seekToByte(int64_t position) {
    return seek(position, AVSEEK_FLAG_BYTE);
}

} // namespace tio::ffmpeg::detail
