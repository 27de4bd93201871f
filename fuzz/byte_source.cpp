// A source that misbehaves: its factory fails, its streams throw, answer short, lie about their
// size or change their answers. Whatever opens it ends, with the library's own exceptions or
// std::bad_alloc, and a picture that FrameReader gives although nothing was lied about is that of
// an honest source.
//   byte 0  which clip
//   byte 1  what is done with it
//   rest    two bytes for every answer that is not honest: after how many that are, and which

#include "InputBytes.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace tio::ffmpeg;
using tio::fuzz::InputBytes;
using Bytes = std::vector<uint8_t>;

// Less than a clip, so that there are many answers to be dishonest in.
constexpr int64_t mostAtOnce = 700;

Bytes pixelsOf(const Image& image) {
    return Bytes(image.data(), image.data() + image.byteCount());
}

/// A whole clip and its pictures.
struct Clip {
    explicit Clip(const char* format) {
        const tio::test::TemporaryFolder folder;
        tio::test::ClipPlan plan;
        plan.format = format;
        plan.width = 32;
        plan.height = 32;
        plan.frameCount = 15;
        plan.gopSize = 5;
        plan.audio = std::string(format) != "h264";
        tio::test::makeClip(folder.file("clip"), plan);
        bytes = tio::test::readBytes(folder.file("clip"));
        FrameReader reader(Source::memory(bytes));
        for (int64_t frame = 0; frame < reader.frameCount(); ++frame)
            pictures.push_back(pixelsOf(reader.readFrame(frame).image));
    }

    Bytes bytes;
    std::vector<Bytes> pictures;
};

const Clip& clipOf(uint8_t number) {
    static const std::array<Clip, 4> clips = {Clip("mp4"), Clip("matroska"), Clip("mpegts"),
                                              Clip("h264")};
    return clips[number % clips.size()];
}

/// The answers that are to come; shared by all streams of a source.
class Plan {
public:
    explicit Plan(InputBytes& bytes) : input(bytes) { readOn(); }

    /// How the next answer is to be: 0 for an honest one.
    uint8_t next() {
        if (honest > 0) {
            --honest;
            return 0;
        }
        const uint8_t kind = then;
        readOn();
        return kind;
    }

    bool lied = false; // bytes were given that are not those of the clip, or too few of them

private:
    void readOn() {
        honest = input.byte();
        then = input.byte();
    }

    InputBytes& input;
    int honest = 0;
    uint8_t then = 0;
};

[[noreturn]] void throwSomething(uint8_t kind) {
    switch (kind % 4) {
    case 0:
        throw std::runtime_error("no more");
    case 1:
        throw 17;
    case 2:
        throw tio::Exception("of the library's own kind");
    default:
        throw std::bad_alloc();
    }
}

class Stream : public ByteStream {
public:
    Stream(const Clip& from, std::shared_ptr<Plan> answers)
        : clip(from), plan(std::move(answers)) {}

    int64_t read(uint8_t* to, int64_t count) override {
        const uint8_t kind = plan->next();
        const auto left = std::max<int64_t>(total - position, 0);
        const int64_t given = std::min({left, count, mostAtOnce});
        switch (kind % 8) {
        case 1:
            throwSomething(kind / 8);
        case 2:
            plan->lied = true; // an end, where the size does not tell
            return 0;
        case 3:
            return -1 - kind;
        case 4:
            return count + 1;
        case 5:
            return give(to, std::min<int64_t>(given, 1));
        case 6:
            return spoil(to, give(to, given), kind);
        case 7:
            position += kind; // leaves bytes out
            plan->lied = true;
            return give(to, std::clamp<int64_t>(total - position, 0, given));
        default:
            return give(to, given);
        }
    }

    void seek(int64_t target) override {
        const uint8_t kind = plan->next();
        switch (kind % 4) {
        case 1:
            throwSomething(kind / 4);
        case 2:
            plan->lied = true;
            return; // stays where it is
        case 3:
            plan->lied = true;
            position = target + kind;
            return;
        default:
            position = target;
        }
    }

    int64_t size() override {
        const uint8_t kind = plan->next();
        constexpr int choices = 8;
        if (kind % choices == 1)
            throwSomething(kind / choices);
        const std::array<int64_t, choices> answers = {
            total, 0, unknownSize, -2 - kind, total - 1 - kind, total + 1 + kind, INT64_MAX, 0};
        const int64_t answer = answers[kind % choices];
        plan->lied = plan->lied || (answer != total && answer != unknownSize);
        return answer;
    }

private:
    int64_t give(uint8_t* to, int64_t count) {
        if (count > 0)
            std::memcpy(to, clip.bytes.data() + position, static_cast<size_t>(count));
        position += count;
        return count;
    }

    int64_t spoil(uint8_t* to, int64_t count, uint8_t kind) {
        plan->lied = true;
        for (int64_t at = kind % 16; at < count; at += kind)
            to[at] = static_cast<uint8_t>(to[at] ^ kind);
        return count;
    }

    const Clip& clip;
    std::shared_ptr<Plan> plan;
    const int64_t total = static_cast<int64_t>(clip.bytes.size());
    int64_t position = 0;
};

Source sourceOf(const Clip& clip, const std::shared_ptr<Plan>& plan) {
    return Source::streams(
        [&clip, plan]() -> std::unique_ptr<ByteStream> {
            const uint8_t kind = plan->next();
            if (kind % 4 == 1)
                throwSomething(kind / 4);
            if (kind % 4 == 2)
                return nullptr;
            return std::make_unique<Stream>(clip, plan);
        },
        "dishonest");
}

template <typename Action>
void attempt(const Action& action) {
    try {
        action();
    } catch (const tio::Exception&) { // what such a source should give
    } catch (const std::bad_alloc&) {
    }
}

void check(const Clip& clip, const Plan& plan, const FrameReader::Picture& picture) {
    if (picture.image.empty())
        std::abort();
    if (plan.lied)
        return;
    const auto number = static_cast<size_t>(picture.number);
    if (number >= clip.pictures.size() || pixelsOf(picture.image) != clip.pictures[number])
        std::abort();
}

void readPictures(const Clip& clip, const std::shared_ptr<Plan>& plan, uint8_t how) {
    FrameReaderOptions options;
    options.checksums = (how & 1) != 0;
    options.threads = how >> 1 & 1;
    if ((how & 4) != 0)
        options.index = FrameIndex::build(Source::memory(clip.bytes));
    FrameReader reader(sourceOf(clip, plan), options);
    const int64_t last = reader.frameCount() - 1;
    for (const int64_t frame : {last, int64_t{0}, last / 2, int64_t{1}, last})
        attempt([&] { check(clip, *plan, reader.readFrame(frame)); });
    attempt([&] {
        reader.readFrames({last, 2, 7, 2}, [&](const auto& picture) {
            check(clip, *plan, picture);
            return true;
        });
    });
    attempt([&] { (void)reader.digest(0, last); });
}

void readSound(const Source& source) {
    SampleReader reader(source);
    for (const int64_t first : {int64_t{0}, reader.sampleCount() / 2, reader.sampleCount() - 64})
        attempt([&] { (void)reader.readSamples(first, 64); });
}

void readPackets(const Source& source) {
    PacketReader reader(std::make_shared<InputFormatContext>(source), {0});
    while (reader.getNextPacket().packet) {
    }
}

void askIndex(const Clip& clip, const Source& source) {
    attempt([&] { (void)FrameIndex::build(source); });
    (void)FrameIndex::build(Source::memory(clip.bytes)).match(source);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    InputBytes input(bytes, count);
    const Clip& clip = clipOf(input.byte());
    const uint8_t what = input.byte();
    const auto plan = std::make_shared<Plan>(input);
    attempt([&] {
        switch (what % 8) {
        case 0:
            return readSound(sourceOf(clip, plan));
        case 1:
            return readPackets(sourceOf(clip, plan));
        case 2:
            return askIndex(clip, sourceOf(clip, plan));
        case 3:
            return static_cast<void>(readImageFrom(sourceOf(clip, plan)));
        default:
            return readPictures(clip, plan, static_cast<uint8_t>(what / 8));
        }
    });
    return 0;
}
