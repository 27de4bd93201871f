#include "input/ByteChannel.h"

#include "input/SourceRecipe.h"

#include <TARN/core/Exception.h>

#include <cstdio>
#include <limits>
#include <new>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

// Two of the pages that demuxers jump between in a clip of usual interleaving.
constexpr int bufferSize = 65536;

int64_t askSize(const Source& source, ByteStream& stream) {
    try {
        const int64_t size = stream.size();
        if (size < ByteStream::unknownSize)
            throw tio::Exception("its size is " + std::to_string(size) + " bytes");
        return size;
    } catch (...) {
        throwStreamFailure(source, std::current_exception());
    }
}

} // namespace

ByteChannel::ByteChannel(const Source& origin, InputWatch& watching)
    : source(origin), watch(watching), stream(openStream(source)), size(askSize(source, *stream)) {
    auto* buffer = static_cast<unsigned char*>(av_malloc(bufferSize));
    if (buffer == nullptr)
        throw std::bad_alloc();
    context = avio_alloc_context(buffer, bufferSize, 0, this, &read, nullptr, &seek);
    if (context == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
}

ByteChannel::~ByteChannel() {
    av_freep(&context->buffer); // FFmpeg may have made another one in place of ours
    avio_context_free(&context);
}

void ByteChannel::rethrowFailure() {
    if (untold)
        throwStreamFailure(source, std::exchange(untold, nullptr));
}

void ByteChannel::forgetFailure() noexcept {
    if (!failed)
        return;
    failed = false;
    untold = nullptr;
    context->error = 0; // FFmpeg would not ask again
    context->eof_reached = 0;
}

int ByteChannel::read(void* self, uint8_t* to, int count) noexcept {
    auto& channel = *static_cast<ByteChannel*>(self);
    if (channel.failed)
        return AVERROR_EXTERNAL;
    if (InputWatch::shouldGiveUp(&channel.watch) != 0)
        return AVERROR_EXIT;
    try {
        const int64_t got = channel.readSome(to, count);
        return got > 0 ? static_cast<int>(got) : AVERROR_EOF;
    } catch (...) {
        channel.failed = true;
        channel.untold = std::current_exception();
        return AVERROR_EXTERNAL;
    }
}

int64_t ByteChannel::readSome(uint8_t* to, int64_t count) {
    if (size >= 0 && position > size)
        return 0;                                             // as after the end of a file
    const int64_t before = std::exchange(streamPosition, -1); // until all went well
    if (before != position)
        stream->seek(position);
    const int64_t got = stream->read(to, count);
    requireHonest(got, count);
    position += got;
    streamPosition = position;
    return got;
}

void ByteChannel::requireHonest(int64_t got, int64_t count) const {
    if (got < 0 || got > count)
        throw tio::Exception("the stream gave " + std::to_string(got) + " bytes where " +
                             std::to_string(count) + " were asked for");
    if (size >= 0 && position + got > size)
        throw tio::Exception("the stream goes on after its size of " + std::to_string(size) +
                             " bytes");
    if (got == 0 && position < size)
        throw tio::Exception("the stream ended at byte " + std::to_string(position) + " of " +
                             std::to_string(size));
}

// The stream itself goes there when bytes are wanted, so that a failure is always that of a read.
int64_t ByteChannel::seek(void* self, int64_t offset, int whence) noexcept {
    auto& channel = *static_cast<ByteChannel*>(self);
    const int64_t known = channel.size >= 0 ? channel.size : int64_t{AVERROR(ENOSYS)};
    const int how = whence & ~AVSEEK_FORCE;
    if (how == AVSEEK_SIZE || (how == SEEK_END && known < 0))
        return known;
    const int64_t origin = how == SEEK_END ? known : how == SEEK_CUR ? channel.position : 0;
    int64_t target = 0;
    if (__builtin_add_overflow(origin, offset, &target) || target < 0)
        return AVERROR(EINVAL);
    channel.position = target;
    return target;
}

} // namespace tio::ffmpeg::detail
