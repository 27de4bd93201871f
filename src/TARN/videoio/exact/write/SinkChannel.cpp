#include "exact/write/SinkChannel.h"

#include "base/checks.h"

#include <TARN/videoio/Exception.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>

namespace tio::ffmpeg {

ByteSink::~ByteSink() = default;

void ByteSink::seek(int64_t) {
    detail::failPlainly("This sink cannot seek");
}

namespace detail {

namespace {

constexpr int bufferBytes = 256 * 1024; // more than the head of a file takes
constexpr int64_t headBytes = int64_t{64} * 1024;

struct Reason {
    std::string words;
    int code = AVERROR_EXTERNAL;
};

Reason reasonOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const Exception& own) {
        return {own.what(), own.code() < 0 ? own.code() : AVERROR_EXTERNAL};
    } catch (const std::exception& known) {
        return {known.what()};
    } catch (...) {
        return {"an exception of unknown type"};
    }
}

} // namespace

SinkChannel::SinkChannel(ByteSink& taker, std::string clip) : sink(taker), name(std::move(clip)) {
    auto* buffer = static_cast<uint8_t*>(av_malloc(bufferBytes));
    if (buffer == nullptr)
        throw std::bad_alloc();
    // Whether the bytes are const differs between releases of FFmpeg; they are its own buffer.
    const auto write = [](void* self, auto* bytes, int count) {
        auto& channel = *static_cast<SinkChannel*>(self);
        const auto length = static_cast<std::size_t>(count);
        const int64_t done = channel.guarded([&] {
            channel.pass(const_cast<uint8_t*>(bytes), length);
            return count;
        });
        return static_cast<int>(done);
    };
    const auto seek = [](void* self, int64_t offset, int whence) -> int64_t {
        auto& channel = *static_cast<SinkChannel*>(self);
        return channel.guarded([&] { return channel.go(offset, whence); });
    };
    const bool seeks = sink.canSeek();
    context = seeks ? avio_alloc_context(buffer, bufferBytes, 1, this, nullptr, write, seek)
                    : avio_alloc_context(buffer, bufferBytes, 1, this, nullptr, write, nullptr);
    if (context == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
}

SinkChannel::~SinkChannel() {
    av_freep(&context->buffer);
    avio_context_free(&context);
}

template <typename Work>
int64_t SinkChannel::guarded(const Work& work) noexcept {
    if (failed)
        return AVERROR_EXTERNAL;
    try {
        return work();
    } catch (...) {
        failed = true;
        untold = std::current_exception();
        return AVERROR_EXTERNAL;
    }
}

void SinkChannel::pass(uint8_t* bytes, std::size_t count) {
    if (position < headBytes) {
        for (const MatroskaDelay& delay : delays)
            delay.fillIn(bytes, count);
    }
    sink.write(bytes, count);
    position += static_cast<int64_t>(count);
    size = std::max(size, position);
}

int64_t SinkChannel::go(int64_t offset, int whence) {
    if (whence == AVSEEK_SIZE)
        return size;
    const int64_t target = whence == SEEK_CUR   ? position + offset
                           : whence == SEEK_END ? size + offset
                                                : offset;
    sink.seek(target);
    position = target;
    return target;
}

void SinkChannel::rethrowFailure() {
    if (!untold)
        return;
    const std::exception_ptr failure = std::exchange(untold, nullptr);
    const Reason reason = reasonOf(failure);
    const std::string text = "Writing \"" + name + "\" failed: " + reason.words;
    logFailure(text);
    try {
        std::rethrow_exception(failure);
    } catch (...) {
        std::throw_with_nested(Exception(text, reason.code));
    }
}

} // namespace detail

} // namespace tio::ffmpeg
