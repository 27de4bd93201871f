#include "exact/run/PacketSource.h"

#include "base/checks.h"
#include "exact/index/SourceBytes.h"
#include "exact/run/readingFailure.h"
#include "input/InputAccess.h"

#include <new>
#include <string>
#include <utility>

namespace tio::ffmpeg::detail {

PacketSource::PacketSource(const Source& origin, int streamIndex)
    : source(origin), current(av_packet_alloc()), index(streamIndex) {
    if (!current)
        throw std::bad_alloc();
    reopen();
}

PacketSource::PacketSource(const std::shared_ptr<InputFormatContext>& origin, int streamIndex)
    : PacketSource(InputAccess::sourceOf(*origin), streamIndex) {}

void PacketSource::reopen() {
    av_packet_unref(current.get());
    if (source.kind() == Source::Kind::Url && isPipe(source.name()))
        failPlainly("\"" + source.name() + "\" is a pipe, which cannot be opened once more");
    auto opened = std::make_unique<InputFormatContext>(source);
    ++openings;
    if (index >= opened->getStreamCount())
        failPlainly("\"" + source.name() + "\" has lost its stream " + std::to_string(index));
    input = std::move(opened);
    for (int other = 0; other < input->getStreamCount(); ++other)
        if (other != index)
            input->getStream(other)->discard = AVDISCARD_ALL;
}

bool PacketSource::read() {
    av_packet_unref(current.get());
    if (input->getNextPacketForStream(current.get(), index))
        return true;
    requireEnd(*input, source);
    return false;
}

const AVFormatContext& PacketSource::format() const {
    return InputAccess::contextOf(*input);
}

bool PacketSource::seek(int64_t target, int flags) {
    av_packet_unref(current.get());
    ++seeks;
    return seekOrStop(*input, source, index, target, flags);
}

bool PacketSource::seekToTime(int64_t ticks) {
    return seek(ticks, AVSEEK_FLAG_BACKWARD);
}

bool PacketSource::seekToByte(int64_t position) {
    return seek(position, AVSEEK_FLAG_BYTE);
}

} // namespace tio::ffmpeg::detail
