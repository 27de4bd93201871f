// Calls in any order, as a caller would never make them, on small clips: of the packet decoders, of
// the stream decoders and of FrameReader. Nothing may be thrown but the library's own exceptions,
// and a picture that FrameReader gives for a number is that of a decoding from start to end.
//   byte 0  which clip
//   byte 1  0: the clip as it is; otherwise that many bytes are changed, each by three of the
//   input:
//           two for the place, one to be added
//   rest    two bytes for every call: which one, and its argument

#include "InputBytes.h"
#include "MemoryFile.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Ffmpeg.h"
#include "support/ReaderPictures.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace tio::ffmpeg;
using tio::fuzz::InputBytes;
using Bytes = std::vector<uint8_t>;

/// A whole clip and the hashes of its pictures.
struct Clip {
    explicit Clip(const tio::test::ClipPlan& plan) {
        const tio::test::TemporaryFolder folder;
        const std::string path = folder.file("clip");
        tio::test::makeClip(path, plan);
        bytes = tio::test::readBytes(path);
        for (const auto& picture : tio::test::everyPictureOf(path, 1))
            hashes.push_back(picture.hash);
    }

    Bytes bytes;
    std::vector<uint64_t> hashes;
};

tio::test::ClipPlan planOf(const std::string& format) {
    tio::test::ClipPlan plan;
    plan.format = format;
    plan.width = 32;
    plan.height = 32;
    plan.frameCount = 15;
    plan.gopSize = 5;
    plan.audio = true;
    return plan;
}

const std::vector<Clip>& clips() {
    static const std::vector<Clip> made = [] {
        std::vector<Clip> all;
        for (const char* format : {"mp4", "matroska", "mpegts"})
            all.emplace_back(planOf(format));
        auto open = planOf("mp4");
        open.openGop = true;
        open.rotation = 90;
        all.emplace_back(open);
        auto uneven = planOf("matroska");
        uneven.encoder = "mpeg4";
        uneven.pts = {0, 1, 2, 7, 8, 9, 30, 31, 32, 40, 41, 42, 43, 44, 45};
        all.emplace_back(uneven);
        return all;
    }();
    return made;
}

/// Everything that calls are made on. What a member refers to stands above it.
struct Subjects {
    Subjects(std::string clipPath, const std::vector<uint64_t>* pictureHashes)
        : path(std::move(clipPath)), hashes(pictureHashes) {
        reopen();
    }

    void reopen() {
        kept.reset();
        stream.reset();
        packetVideo.emplace(PixelFormat::NV12);
        packetAudio.emplace();
        video.reset();
        audio.reset();
        // With options, because without them an input that cannot be analysed stays open: known.
        input = std::make_shared<InputFormatContext>(path, OpenOptions{});
        earlier.push_back(input); // packets that decoders have seen refer to their stream
        stream = std::make_unique<InputStream>(input, input->findBestVideoStreamIndex());
        audioStream = std::make_unique<InputStream>(input, input->findBestAudioStreamIndex());
        video = std::make_unique<VideoStreamDecoder>(input, PixelFormat::RGB);
        audio = std::make_unique<AudioStreamDecoder>(input);
    }

    std::string path;
    const std::vector<uint64_t>* hashes; // null for a clip that was changed
    tio::test::TemporaryFolder folder;
    std::vector<std::shared_ptr<InputFormatContext>> earlier;
    std::shared_ptr<InputFormatContext> input;
    std::unique_ptr<InputStream> stream;
    std::unique_ptr<InputStream> audioStream;
    std::shared_ptr<InputPacket> kept;
    std::optional<VideoPacketDecoder> packetVideo;
    std::optional<AudioPacketDecoder> packetAudio;
    std::unique_ptr<VideoStreamDecoder> video;
    std::unique_ptr<AudioStreamDecoder> audio;
    std::unique_ptr<FrameReader> reader;
    std::optional<FrameIndex> index;
};

void check(const Subjects& on, const FrameReader::Picture& picture) {
    if (picture.frame == nullptr)
        std::abort();
    if (on.hashes == nullptr)
        return;
    const auto number = static_cast<size_t>(picture.number);
    if (number >= on.hashes->size() || tio::test::hashOf(picture) != (*on.hashes)[number])
        std::abort();
}

FrameReader& readerOf(Subjects& on) {
    if (!on.reader)
        on.reader = std::make_unique<FrameReader>(on.input, PixelFormat::RGB);
    return *on.reader;
}

void makeReader(Subjects& on, uint8_t how) {
    FrameReaderOptions options;
    options.checksums = (how & 1) != 0;
    options.threads = how >> 1 & 3;
    options.byteBudget = how >> 3 & 3;
    if ((how & 32) != 0)
        options.index = on.index;
    if ((how & 64) != 0)
        options.progress = [](const IndexProgress&) { return false; };
    on.reader = std::make_unique<FrameReader>(on.input, PixelFormat::RGB, std::move(options));
}

void readList(Subjects& on, uint8_t seed) {
    // Of a damaged clip there may be no frame at all.
    const int64_t choice = std::max<int64_t>(readerOf(on).frameCount() + (seed & 1), 1);
    std::vector<int64_t> frames;
    for (int i = 0; i < 6; ++i)
        frames.push_back((seed * (i + 1) + (seed >> 3)) % choice);
    int left = seed % 8;
    readerOf(on).readFrames(frames, [&](const FrameReader::Picture& picture) {
        check(on, picture);
        return --left != 0;
    });
}

void readRange(Subjects& on, uint8_t seed) {
    const int64_t first = seed & 15;
    const int64_t step = (seed >> 6) - 1;
    const int64_t end = (seed >> 4 & 3) * 5 - (step < 0 ? 1 : 0);
    readerOf(on).readFrames(first, end, step, [&](const FrameReader::Picture& picture) {
        check(on, picture);
        return true;
    });
}

void askReader(Subjects& on, int8_t frame) {
    const FrameReader& reader = readerOf(on);
    (void)reader.isKeyFrame(frame);
    (void)reader.frameDuration(frame);
    const int64_t shown = reader.frameNumberAt(reader.frameTime(frame));
    if (on.hashes != nullptr && shown != frame)
        std::abort();
}

void storeAndLoadIndex(Subjects& on, uint8_t choice) {
    const std::string file = on.folder.file("index");
    if ((choice & 1) != 0)
        on.video->storeSeekingIndex(file);
    else if ((choice & 2) != 0)
        readerOf(on).index().exportSeekingIndex(file);
    else
        readerOf(on).index().save(file);
    if ((choice & 4) != 0)
        on.video->loadSeekingIndex(file); // also the file of the wrong kind
    else if ((choice & 8) != 0)
        on.stream->loadSeekingIndex(file);
    else
        on.index = FrameIndex::load(file, on.input).index;
}

void turnTag(Subjects& on, uint8_t turns) {
    AVStream& tagged = *on.input->getStream(on.input->findBestVideoStreamIndex());
    av_dict_set_int(&tagged.metadata, "rotate", 90 * (turns % 4), 0);
}

using Call = std::function<void(Subjects&, uint8_t)>;

const std::vector<Call> calls = {
    // The packet decoders and the streams that feed them.
    [](Subjects& on, uint8_t) { on.kept = on.stream->getNextPacket(); },
    [](Subjects& on, uint8_t) { on.kept = on.audioStream->getNextPacket(); },
    [](Subjects& on, uint8_t) { (void)on.packetVideo->offerPacket(on.kept); },
    [](Subjects& on, uint8_t) { (void)on.packetAudio->offerPacket(on.kept); },
    [](Subjects& on, uint8_t) { (void)on.packetVideo->offerPacket(on.stream->getNextPacket()); },
    [](Subjects& on, uint8_t) { (void)on.packetVideo->readNextFrame(); },
    [](Subjects& on, uint8_t) { (void)on.packetAudio->readNextFrame(); },
    [](Subjects& on, uint8_t) { (void)on.packetVideo->getUnitTime(); },
    [](Subjects& on, uint8_t) { (void)on.packetAudio->getUnitTime(); },
    [](Subjects& on, uint8_t) { on.packetVideo->flush(); },
    [](Subjects& on, uint8_t) { on.packetAudio->flush(); },
    [](Subjects& on, uint8_t) { on.packetVideo->end(); },
    [](Subjects& on, uint8_t) { on.packetAudio->end(); },
    [](Subjects& on, uint8_t) { (void)on.packetVideo->getFrameSize(); },
    [](Subjects& on, uint8_t) { (void)on.packetAudio->getSampleRate(); },
    [](Subjects& on, uint8_t format) {
        on.packetVideo.emplace(static_cast<PixelFormat>(format % 4));
    },
    [](Subjects& on, uint8_t frame) { (void)on.stream->seekToOrBefore(frame % 17); },
    [](Subjects& on, uint8_t frame) { (void)on.audioStream->seekToOrBefore(frame % 17); },
    [](Subjects& on, uint8_t) { (void)on.stream->getFrameMsMap(); },
    [](Subjects& on, uint8_t) { (void)on.stream->startsWithKeyFrame(); },

    // The stream decoders.
    [](Subjects& on, uint8_t) { (void)on.video->readNextFrame(); },
    [](Subjects& on, uint8_t) { (void)on.audio->readNextFrame(); },
    [](Subjects& on, uint8_t frame) { on.video->seek(static_cast<int8_t>(frame) % 17); },
    [](Subjects& on, uint8_t frame) { on.audio->seek(static_cast<int8_t>(frame) % 40); },
    [](Subjects& on, uint8_t frame) { (void)on.video->seekToOrBefore(frame % 17); },
    [](Subjects& on, uint8_t frame) { (void)on.audio->seekToOrBefore(frame % 40); },
    [](Subjects& on, uint8_t) { (void)on.video->getFrameCount(); },
    [](Subjects& on, uint8_t) { (void)on.video->getFrameSize(); },
    [](Subjects& on, uint8_t) { (void)on.audio->getSampleRate(); },
    [](Subjects& on, uint8_t count) {
        for (int i = 0; i < count % 32; ++i)
            (void)on.video->readNextFrame();
    },
    [](Subjects& on, uint8_t count) {
        for (int i = 0; i < count % 32; ++i)
            (void)on.audio->readNextFrame();
    },

    // The reader.
    [](Subjects& on, uint8_t how) { makeReader(on, how); },
    [](Subjects& on, uint8_t frame) {
        check(on, readerOf(on).readFrame(static_cast<int8_t>(frame) % 17));
    },
    [](Subjects& on, uint8_t time) {
        check(on, readerOf(on).readFrameAt({static_cast<int8_t>(time), 50}));
    },
    readList,
    readRange,
    askReader,

    // All of them.
    storeAndLoadIndex,
    turnTag,
    [](Subjects& on, uint8_t) { on.reopen(); },
};

void callAll(const std::string& path, const std::vector<uint64_t>* hashes, InputBytes& input) {
    constexpr int mostCalls = 40;
    Subjects subjects(path, hashes);
    for (int i = 0; i < mostCalls && !input.atEnd(); ++i) {
        const Call& call = calls[input.byte() % calls.size()];
        const uint8_t argument = input.byte();
        try {
            call(subjects, argument);
        } catch (const tio::Exception&) {
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    InputBytes input(bytes, count);
    const Clip& clip = clips()[input.byte() % clips().size()];
    Bytes file = clip.bytes;
    const int changes = input.byte();
    for (int i = 0; i < changes && !input.atEnd(); ++i) {
        uint8_t& changed = file[input.number<uint16_t>() % file.size()];
        changed = static_cast<uint8_t>(changed + input.byte());
    }
    const tio::fuzz::MemoryFile opened(file.data(), file.size());
    try {
        callAll(opened.path(), changes == 0 ? &clip.hashes : nullptr, input);
    } catch (const tio::Exception&) { // the changes left nothing to open
    }
    return 0;
}
