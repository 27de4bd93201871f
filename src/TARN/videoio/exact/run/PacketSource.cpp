#include "exact/run/PacketSource.h"

#include "base/checks.h"
#include "exact/index/SourceBytes.h"
#include "input/InputAccess.h"

#include <TARN/videoio/Exception.h>

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
    // Taken for the end, it would make a shorter stream of this one.
    const EndReason reason = input->getEndReason();
    if (InputAccess::wasCutShort(*input) || reason.code == AVERROR(ENOMEM))
        failReading(reason);
    return false;
}

void PacketSource::failReading(const EndReason& reason) const {
    using Kind = EndReason::Kind;
    if (reason.kind == Kind::Timeout)
        throw Exception("Reading took longer than " +
                            std::to_string(source.options().readTimeout.count()) +
                            " ms: " + source.name(),
                        AVERROR(ETIMEDOUT));
    if (reason.kind == Kind::Cancelled)
        throw Exception("Reading was cancelled: " + source.name(), AVERROR_EXIT);
    throwFfmpegFailure(reason.code < 0 ? reason.code : AVERROR_EXTERNAL, {"PacketSource", 1},
                       &source.name());
}

const AVFormatContext& PacketSource::format() const {
    return InputAccess::contextOf(*input);
}

// What was stopped is not tried in another way.
bool PacketSource::seek(int64_t target, int flags) {
    using Kind = EndReason::Kind;
    av_packet_unref(current.get());
    ++seeks;
    const int sought = InputAccess::seek(*input, index, target, flags);
    if (sought >= 0)
        return true;
    const EndReason reason = InputAccess::reasonFor(*input, sought);
    if (reason.kind == Kind::Timeout || reason.kind == Kind::Cancelled)
        failReading(reason);
    return false;
}

bool PacketSource::seekToTime(int64_t ticks) {
    return seek(ticks, AVSEEK_FLAG_BACKWARD);
}

bool PacketSource::seekToByte(int64_t position) {
    return seek(position, AVSEEK_FLAG_BYTE);
}

} // namespace tio::ffmpeg::detail
