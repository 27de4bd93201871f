#include "exact/run/readingFailure.h"

#include "base/checks.h"
#include "input/InputAccess.h"

#include <TARN/videoio/Exception.h>

#include <string>

namespace tio::ffmpeg::detail {

void failReading(const EndReason& reason, const Source& source) {
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

void requireEnd(const InputFormatContext& input, const Source& source) {
    const EndReason reason = input.getEndReason();
    if (InputAccess::wasCutShort(input) || reason.code == AVERROR(ENOMEM))
        failReading(reason, source);
}

bool seekOrStop(InputFormatContext& input, const Source& source, int stream, int64_t target,
                int flags) {
    using Kind = EndReason::Kind;
    const int sought = InputAccess::seek(input, stream, target, flags);
    if (sought >= 0)
        return true;
    const EndReason reason = InputAccess::reasonFor(input, sought);
    if (reason.kind == Kind::Timeout || reason.kind == Kind::Cancelled)
        failReading(reason, source);
    return false;
}

} // namespace tio::ffmpeg::detail
