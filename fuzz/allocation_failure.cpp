// The n-th allocation fails, of FFmpeg or of C++, in one of the library's works. Each step of a
// work either succeeds or throws std::bad_alloc or an exception of the library; the steps after it
// then go on with the same objects, and what they give is right; in the end nothing is left behind.
//   byte 0         which work; bit 7: only allocations of C++ count, as they always do on other
//                  releases of FFmpeg than 5
//   bytes 1 and 2  number of the first allocation that fails
//   byte 3         how many more fail
//
// Address and undefined-behaviour sanitizers stay on: the program brings its own malloc(), which
// calls theirs. av_max_alloc() would not do, because it fails by size and only FFmpeg's.

#include "FailingAllocation.h"
#include "InputBytes.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Ffmpeg.h"
#include "support/ReaderPictures.h"
#include "support/SoundMaker.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/core/MatAlloc.h>
#include <TARN/videoio.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace tio::ffmpeg;
using tio::fuzz::FailingAllocation;
using Image = tio::Mat<tio::Vec<uint8_t, 3>, 2, tio::MatOptions<1, 1>>;
using Account = FailingAllocation::Scope::Account;

constexpr int width = 32;
constexpr int height = 16;

void require(bool condition) {
    if (!condition)
        std::abort();
}

/// What the works read and where they write. Made while nothing fails.
struct Media {
    Media() {
        tio::test::ClipPlan plan;
        plan.width = width;
        plan.height = height;
        plan.frameCount = 8;
        plan.gopSize = 4;
        plan.audio = true;
        tio::test::makeClip(clip, plan);
        for (const auto& picture : tio::test::everyPictureOf(clip, 1))
            hashes.push_back(picture.hash);
        sound = tio::test::oracleSound(clip);
        plan.rotation = 90;
        plan.audio = false;
        tio::test::makeClip(turnedClip, plan);
        std::fill_n(image.data(), image.count, tio::Vec<uint8_t, 3>(10, 200, 30));
        for (const auto& name : stills)
            writeImage(name, image);
    }

    tio::test::TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    std::string turnedClip = folder.file("turned.mp4");
    std::array<std::string, 3> stills = {folder.file("a.png"), folder.file("a.jpg"),
                                         folder.file("a.ppm")};
    std::string scratch = folder.file("scratch");
    std::vector<uint64_t> hashes; // of the clip's pictures
    tio::test::OracleSound sound; // of the clip
    Image image{tio::Vec<int, 2>(height, width)};
};

const Media& media() {
    static const Media made;
    return made;
}

/// Does something that may fail because memory ran out.
/// @returns whether it succeeded
template <typename Action>
bool step(const Action& action, Account account = Account::Kept) {
    try {
        const FailingAllocation::Scope scope(account);
        action();
        return true;
    } catch (const std::bad_alloc&) {
    } catch (const tio::Exception&) {
    }
    return false;
}

// With options, because without them an input that cannot be analysed stays open: known.
std::shared_ptr<InputFormatContext> open(const std::string& path, const OpenOptions& options = {}) {
    std::shared_ptr<InputFormatContext> input;
    for (int attempt = 0; attempt < 2 && !input; ++attempt)
        step([&] { input = std::make_shared<InputFormatContext>(path, options); });
    return input;
}

void requireSize(const VideoPacketDecoder::Frame& picture, int rows, int cols) {
    if (!picture.frame)
        return;
    const auto rgb = std::static_pointer_cast<tio::Frame<tio::PixelFormat::RGB>>(picture.frame);
    require(rgb->size[0] == rows && rgb->size[1] == cols);
}

void decode(const std::string& path, int rows, int cols, const OpenOptions& options = {}) {
    auto input = open(path, options);
    if (!input)
        return;
    std::optional<VideoStreamDecoder> decoder;
    step([&] { decoder.emplace(input, PixelFormat::RGB); });
    if (!decoder)
        return;
    for (int i = 0; i < 4; ++i)
        step([&] { requireSize(decoder->readNextFrame(), rows, cols); });
    step([&] { (void)decoder->getFrameCount(); });
    for (const int64_t frame : {5, 2, 7})
        step([&] {
            decoder->seek(frame);
            requireSize(decoder->readNextFrame(), rows, cols);
        });
    step([&] { decoder.reset(); });
    step([&] { input.reset(); });
}

void decodeClip() {
    decode(media().clip, height, width);
}

void decodeTurned() {
    decode(media().turnedClip, width, height);
}

void decodeWithOptions() {
    OpenOptions options;
    options.readTimeout = std::chrono::seconds(10);
    options.formatName = "mov";
    options.probeSize = 100000;
    options.demuxerOptions = {{"ignore_editlist", "0"}, {"export_all", "1"}};
    decode(media().clip, height, width, options);
}

void decodeSound() {
    auto input = open(media().clip);
    if (!input)
        return;
    std::optional<AudioStreamDecoder> decoder;
    step([&] { decoder.emplace(input); });
    for (int i = 0; decoder && i < 4; ++i)
        step([&] { (void)decoder->readNextFrame(); });
    for (int i = 0; decoder && i < 2; ++i)
        step([&] { decoder->seek(3); });
    step([&] { decoder.reset(); });
    step([&] { input.reset(); });
}

void check(const FrameReader::Picture& picture) {
    const auto number = static_cast<size_t>(picture.number);
    require(tio::test::hashOf(picture) == media().hashes.at(number));
}

void readByNumber() {
    auto input = open(media().clip);
    if (!input)
        return;
    FrameReaderOptions options;
    options.threads = 1;
    std::optional<FrameReader> reader;
    for (int attempt = 0; attempt < 2 && !reader; ++attempt)
        step([&] { reader.emplace(input, PixelFormat::RGB, options); });
    if (!reader)
        return;
    for (const int64_t frame : {6, 1, 7, 6})
        step([&] { check(reader->readFrame(frame)); });
    const auto checked = [](const auto& picture) {
        check(picture);
        return true;
    };
    for (int attempt = 0; attempt < 2; ++attempt)
        step([&] { reader->readFrames({5, 0, 5, 2}, checked); });
    step([&] { (void)reader->index(); });
    step([&] { reader.reset(); });
    step([&] { input.reset(); });
}

void storeIndex() {
    auto input = open(media().clip);
    if (!input)
        return;
    FrameIndexOptions options;
    options.checksums = true;
    options.threads = 1;
    std::optional<FrameIndex> index;
    for (int attempt = 0; attempt < 2 && !index; ++attempt)
        step([&] { index = FrameIndex::build(input, options); });
    if (!index)
        return;
    const bool saved = step([&] { index->save(media().scratch); });
    step([&] {
        const auto loaded = FrameIndex::load(media().scratch, input);
        require(!saved || loaded.match == FrameIndex::Match::Fresh);
    });
    step([&] { index->exportSeekingIndex(media().scratch); });
    step([&] { index.reset(); });
    step([&] { input.reset(); });
}

void check(const SampleReader::Samples& samples, int64_t first) {
    const tio::test::OracleSound& sound = media().sound;
    require(samples.cols() == sound.channels);
    require(std::memcmp(samples.data(), sound.samples.data() + first * sound.channels,
                        static_cast<size_t>(samples.count) * sizeof(float)) == 0);
}

void readSoundByNumber() {
    std::optional<SampleReader> reader;
    for (int attempt = 0; attempt < 2 && !reader; ++attempt)
        step([&] { reader.emplace(media().clip); });
    if (!reader)
        return;
    const int64_t total = media().sound.count();
    require(reader->sampleCount() == total);
    for (const int64_t first : {total / 2, int64_t{100}, total - 900, total / 2 + 300})
        step([&] { check(reader->readSamples(first, 900), first); });
    step([&] { check(reader->readSamplesBetween(reader->timeOfSample(700), {1, 10}), 700); });
    std::optional<SampleIndex> index;
    step([&] { index.emplace(reader->index()); });
    step([&] { reader.reset(); });
    if (!index)
        return;
    const bool saved = step([&] { index->save(media().scratch); });
    step([&] {
        SampleReaderOptions options;
        options.index =
            saved ? SampleIndex::load(media().scratch) : SampleIndex::fromBytes(index->toBytes());
        check(SampleReader(media().clip, options).readSamples(total - 50, 50), total - 50);
    });
    step([&] { index.reset(); });
}

void storeSeekingIndex() {
    auto input = open(media().clip);
    if (!input)
        return;
    std::optional<InputStream> stream;
    step([&] { stream.emplace(input, input->findBestVideoStreamIndex()); });
    if (!stream)
        return;
    // The file stays open after a failure, as docs/behaviour.md says.
    step([&] { stream->storeSeekingIndex(media().scratch); }, Account::NotKept);
    step([&] { stream->loadSeekingIndex(media().scratch); }, Account::NotKept);
    step([&] { (void)stream->getFrameMsMap(); });
    step([&] { stream.reset(); });
    step([&] { input.reset(); });
}

// What an encoder leaves behind is known, so no account is kept of it. That the destructors of
// stream encoders end the program when writing fails is known as well: nothing fails there.
void encode() {
    std::shared_ptr<OutputFormatContext> output;
    step([&] { output = std::make_shared<OutputFormatContext>(media().scratch); });
    std::optional<VideoStreamEncoder> video;
    std::optional<AudioStreamEncoder> audio;
    if (!output)
        return;
    step([&] { video.emplace(output, tio::Vec<int, 2>(height, width), Rational(1, 25)); },
         Account::NotKept);
    step([&] { audio.emplace(output, 3, 48000, Rational()); }, Account::NotKept);
    AudioPacketEncoder::Samples samples;
    step([&] { samples = AudioPacketEncoder::Samples(tio::Vec<int, 2>(1024, 2)); });
    std::fill_n(samples.data(), samples.count, 0.25F);
    for (int i = 0; i < 3; ++i) {
        if (video)
            step([&] { video->writeNextFrame(media().image, Rational(i, 25)); }, Account::NotKept);
        if (audio)
            step([&] { audio->writeNextFrame(samples, Rational(1024 * i, 48000)); },
                 Account::NotKept);
    }
    video.reset();
    audio.reset();
    step([&] { output->finish(); }, Account::NotKept);
    step([&] { output.reset(); }, Account::NotKept);
}

void copyPackets() {
    auto input = open(media().clip);
    if (!input)
        return;
    std::optional<InputStream> from;
    step([&] { from.emplace(input, input->findBestVideoStreamIndex()); });
    std::shared_ptr<OutputFormatContext> output;
    step([&] { output = std::make_shared<OutputFormatContext>(media().scratch); });
    if (!from || !output)
        return;
    std::optional<OutputStream> to;
    step([&] { to.emplace(output, from->getUnitTime()); });
    for (int i = 0; to && i < 8; ++i)
        step([&] {
            if (const auto packet = from->getNextPacket())
                to->writePacket(*packet);
        });
    to.reset(); // writes what is held
    step([&] { output->finish(); });
    step([&] { output.reset(); });
    step([&] { from.reset(); });
    step([&] { input.reset(); });
}

void readStills() {
    for (const auto& path : media().stills)
        for (int attempt = 0; attempt < 2; ++attempt)
            step([&] { require(tio::readImageUpright(path).rows() == height); });
}

void writeStills() {
    for (const auto& path : media().stills) {
        step([&] { writeImage(path, media().image); }, Account::NotKept);
        writeImage(path, media().image); // whole again for those who read it
    }
}

using Work = void (*)();
constexpr std::array<Work, 12> works = {
    decodeClip, decodeTurned, decodeWithOptions, decodeSound, readByNumber,      storeIndex,
    encode,     copyPackets,  readStills,        writeStills, storeSeekingIndex, readSoundByNumber};

// Inside of these FFmpeg 5.1 crashes by itself when an allocation fails; see docs/reliability.md.
// That they fail is tested by other means, in tests/MemoryShortageTest.cpp.
constexpr std::array<const char*, 6> spared = {
    "avformat_open_input", "avformat_find_stream_info", "avcodec_alloc_context3",
    "avcodec_open2",       "avcodec_send_packet",       "avcodec_receive_frame"};

/// Of other releases it is not known inside of which calls they crash.
bool isKnownFfmpeg() {
    constexpr unsigned ofRelease5 = 59;
    return avcodec_version() >> 16 == ofRelease5;
}

/// Each work once without a failure, so that what is made once for the whole process is there.
bool prepare() {
    FailingAllocation::spare(spared.data(), spared.size());
    for (const Work work : works) {
        FailingAllocation::plan(FailingAllocation::never, 0);
        work();
    }
    return true;
}

// FFmpeg leaves memory behind itself when it is deep inside one of its calls, such as opening a
// codec, and an allocation fails. What counts here are the library's own calls, of which those that
// allocate, av_packet_alloc() and the like, reach the allocator within a few steps.
bool leavesSomething(Work work, uint32_t first, uint32_t failures, FailingAllocation::Kind kind) {
    constexpr int fewSteps = 4;
    FailingAllocation::plan(first, failures, kind);
    work();
    tio::MatAlloc::getGlobalMatAlloc()->trim(); // which keeps large blocks for later
    return FailingAllocation::stillThere() != 0 && FailingAllocation::deepestFailure() <= fewSteps;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    static const bool prepared = prepare();
    (void)prepared;
    tio::fuzz::InputBytes input(bytes, count);
    const uint8_t choice = input.byte();
    const Work work = works[(choice & 0x7F) % works.size()];
    const auto kind = (choice & 0x80) != 0 || !isKnownFfmpeg() ? FailingAllocation::Kind::OfCpp
                                                               : FailingAllocation::Kind::All;
    const uint32_t first = input.number<uint16_t>();
    const uint32_t failures = 1 + input.byte();
    // Twice, because the first failure of a process may make something once.
    if (leavesSomething(work, first, failures, kind) &&
        leavesSomething(work, first, failures, kind)) {
        std::fprintf(stderr, "%zu allocations were not given back; the first is number %u\n",
                     FailingAllocation::stillThere(), FailingAllocation::firstStillThere());
        FailingAllocation::showStackOf(FailingAllocation::firstStillThere());
        (void)leavesSomething(work, first, failures, kind);
        std::abort();
    }
    return 0;
}
