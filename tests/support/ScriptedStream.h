#pragma once

#include <TARN/videoio/Source.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace tio::test {

/// A stream over bytes that does what a test wants of it. Where a hook is set it is called in place
/// of the honest answer, which it is given.
class ScriptedStream : public ffmpeg::ByteStream {
public:
    struct Script {
        std::vector<uint8_t> bytes;
        std::function<int64_t(int64_t position, int64_t count, int64_t honest)> read;
        std::function<void(int64_t position)> seek;
        std::function<int64_t(int64_t honest)> size;
    };

    explicit ScriptedStream(std::shared_ptr<const Script> plan) : script(std::move(plan)) {}

    int64_t read(uint8_t* to, int64_t count) override {
        const auto end = static_cast<int64_t>(script->bytes.size());
        int64_t answer = std::clamp<int64_t>(end - position, 0, count);
        if (script->read)
            answer = script->read(position, count, answer);
        const int64_t copied = std::clamp<int64_t>(std::min(answer, end - position), 0, count);
        if (copied > 0)
            std::memcpy(to, script->bytes.data() + position, static_cast<size_t>(copied));
        position += copied;
        return answer;
    }

    void seek(int64_t target) override {
        if (script->seek)
            script->seek(target);
        position = target;
    }

    int64_t size() override {
        const auto honest = static_cast<int64_t>(script->bytes.size());
        return script->size ? script->size(honest) : honest;
    }

private:
    std::shared_ptr<const Script> script;
    int64_t position = 0;
};

/// A source of such streams.
inline ffmpeg::Source scriptedSource(ScriptedStream::Script script,
                                     ffmpeg::OpenOptions options = {}) {
    const auto shared = std::make_shared<const ScriptedStream::Script>(std::move(script));
    return ffmpeg::Source::streams([shared] { return std::make_unique<ScriptedStream>(shared); },
                                   "scripted clip", std::move(options));
}

} // namespace tio::test
