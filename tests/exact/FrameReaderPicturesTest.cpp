#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Ffmpeg.h"
#include "support/GuardedMemory.h"
#include "support/ReaderPictures.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::IsFraction;
using test::thrownText;
using testing::ElementsAre;
using testing::HasSubstr;

class FrameReaderPictures : public testing::Test {
protected:
    FrameReader open(const ClipPlan& plan, FrameReaderOptions options = {}) {
        test::makeClip(clip, plan);
        return FrameReader(Source(clip), std::move(options));
    }

    /// The number that is drawn into a picture.
    static int numberIn(const Image& image) {
        return test::readPictureNumber(image.data(), image.width(), image.height());
    }

    static ClipPlan tagged(const char* colours, const char* range) {
        ClipPlan plan;
        plan.encoderOptions = {{"colorspace", colours}, {"color_range", range}};
        return plan;
    }

    test::LogCapture log;
    test::TemporaryFolder folder;
    std::string clip = folder.file("clip");
};

TEST_F(FrameReaderPictures, AreImagesOfTheFrameAskedFor) {
    FrameReader reader = open({});
    for (const int64_t number : {17, 3, 24, 0}) {
        const auto picture = reader.readFrame(number);
        EXPECT_EQ(numberIn(picture.image), number);
        EXPECT_EQ(picture.frame, nullptr);
        EXPECT_EQ(picture.image.height(), 64);
        EXPECT_EQ(picture.image.width(), 96);
    }
    EXPECT_EQ(reader.height(), 64);
    EXPECT_EQ(reader.width(), 96);
}

TEST_F(FrameReaderPictures, TellWhatAWriterNeeds) {
    FrameReader reader = open({});
    const auto first = reader.readFrame(0);
    EXPECT_TRUE(first.keyFrame);
    EXPECT_EQ(first.type, 'I');
    EXPECT_FALSE(first.interlaced);
    EXPECT_EQ(first.unitTime, reader.timeBase());
    const auto second = reader.readFrame(1);
    EXPECT_FALSE(second.keyFrame);
    EXPECT_THAT(second.type, testing::AnyOf('P', 'B'));
    EXPECT_THAT(second.time, IsFraction(1, 25));
}

TEST_F(FrameReaderPictures, TellOfFields) {
    ClipPlan plan;
    plan.encoderOptions = {{"x264-params", "tff=1"}};
    EXPECT_TRUE(open(plan).readFrame(3).interlaced);
}

TEST_F(FrameReaderPictures, TheClipTellsItsTimesAndKeyFrames) {
    ClipPlan plan;
    plan.pts = {0, 1, 5, 6, 20};
    plan.gopSize = 3;
    plan.maxBFrames = 0;
    FrameReader reader = open(plan);
    std::vector<int64_t> times;
    for (const int64_t tick : reader.ticks())
        times.push_back((Rational(tick, 1) * reader.timeBase() * Rational(25, 1)).toInteger());
    EXPECT_THAT(times, ElementsAre(0, 1, 5, 6, 20));
    EXPECT_THAT(reader.keyFrames(), ElementsAre(0, 3));
}

// Samples of the decoded picture, and what H.273 makes of them.
struct Colouring {
    const char* matrix;
    const char* range;
    double red;
    double blue;
    bool full;
};

class TaggedClip : public FrameReaderPictures, public testing::WithParamInterface<Colouring> {};

TEST_P(TaggedClip, HasTheColoursThatWereMeant) {
    const Colouring& colouring = GetParam();
    ClipPlan plan = tagged(colouring.matrix, colouring.range);
    test::makeClip(clip, plan);
    FrameReaderOptions planes;
    planes.format = PictureFormat::Yuv420;
    const Image stored = FrameReader(Source(clip), planes).readFrame(7).image;
    const Image image = FrameReader(Source(clip)).readFrame(7).image;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 96; ++x) {
            const double luma = stored.data(0)[y * stored.stride(0) + x];
            const double v = stored.data(2)[y / 2 * stored.stride(2) + x / 2] - 128.0;
            const double red = colouring.full
                                   ? luma + 2 * (1 - colouring.red) * v
                                   : 255 * ((luma - 16) / 219 + 2 * (1 - colouring.red) * v / 224);
            ASSERT_NEAR(image.data()[y * image.stride() + 3 * x], std::clamp(red, 0.0, 255.0), 0.7)
                << x << ", " << y;
        }
}

INSTANTIATE_TEST_SUITE_P(Tags, TaggedClip,
                         testing::Values(Colouring{"bt709", "tv", 0.2126, 0.0722, false},
                                         Colouring{"bt709", "pc", 0.2126, 0.0722, true},
                                         Colouring{"smpte170m", "pc", 0.299, 0.114, true},
                                         Colouring{"bt2020nc", "tv", 0.2627, 0.0593, false}));

TEST_F(FrameReaderPictures, InTheColoursOfStreamDecodersAreTheirs) {
    test::makeClip(clip, tagged("bt709", "tv"));
    FrameReaderOptions options;
    options.colours = Colours::Bt601;
    const Image image = FrameReader(Source(clip), options).readFrame(0).image;
    VideoStreamDecoder decoder(std::make_shared<InputFormatContext>(clip), PixelFormat::RGB);
    const auto frame = decoder.readNextFrame().frame;
    const auto& plane = static_cast<const Frame<tio::PixelFormat::RGB>&>(*frame).plane;
    EXPECT_EQ(std::memcmp(image.data(), plane.data(), static_cast<size_t>(plane.count)), 0);
    const Image meant = FrameReader(Source(clip)).readFrame(0).image;
    EXPECT_NE(std::memcmp(meant.data(), plane.data(), static_cast<size_t>(plane.count)), 0);
}

TEST_F(FrameReaderPictures, OfAPixelFormatHaveTheColoursThatWereMeantToo) {
    test::makeClip(clip, tagged("bt709", "tv"));
    const Image image = FrameReader(Source(clip)).readFrame(5).image;
    FrameReader frames(std::make_shared<InputFormatContext>(clip), PixelFormat::RGB);
    const auto picture = frames.readFrame(5);
    const auto& plane = test::rgbOf(picture).plane;
    EXPECT_EQ(std::memcmp(image.data(), plane.data(), static_cast<size_t>(plane.count)), 0);
    EXPECT_TRUE(picture.image.empty());
}

TEST_F(FrameReaderPictures, KeepTheBitsOfADeepClip) {
    ClipPlan plan;
    plan.pixelFormat = "yuv420p10le";
    plan.encoder = "ffv1";
    plan.format = "matroska";
    test::makeClip(clip, plan);
    FrameReaderOptions options;
    options.format = PictureFormat::Grey16;
    const Image grey = FrameReader(Source(clip), options).readFrame(4).image;
    options.format = PictureFormat::Yuv420P10;
    const Image stored = FrameReader(Source(clip), options).readFrame(4).image;
    for (int x = 0; x < 96; ++x) {
        uint16_t level = 0;
        uint16_t luma = 0;
        std::memcpy(&level, grey.data() + 2 * x, 2);
        std::memcpy(&luma, stored.data() + 2 * x, 2);
        EXPECT_NEAR(level, std::clamp((luma - 64) / 876.0, 0.0, 1.0) * 65535, 1);
    }
}

TEST_F(FrameReaderPictures, HaveTheSizeAskedFor) {
    ClipPlan plan;
    plan.rotation = 90;
    FrameReaderOptions options;
    options.height = 48;
    options.width = 32;
    FrameReader reader = open(plan, options);
    const Image image = reader.readFrame(9).image;
    EXPECT_EQ(image.height(), 48);
    EXPECT_EQ(image.width(), 32);
    EXPECT_EQ(reader.height(), 48);
    EXPECT_EQ(reader.width(), 32);
}

TEST_F(FrameReaderPictures, AreTheCallersOwn) {
    FrameReader reader = open({});
    Image first = reader.readFrame(8).image;
    std::memset(first.data(), 0, static_cast<size_t>(first.byteCount()));
    EXPECT_EQ(numberIn(reader.readFrame(8).image), 8);
    std::vector<int> numbers;
    reader.readFrames({5, 5, 5}, [&](const FrameReader::Picture& picture) {
        Image image = picture.image;
        numbers.push_back(numberIn(image));
        std::memset(image.data(), 0, static_cast<size_t>(image.byteCount()));
        return true;
    });
    EXPECT_THAT(numbers, ElementsAre(5, 5, 5));
}

// --- Into memory of the caller's ---

class FramesIntoMemory : public FrameReaderPictures {
protected:
    static constexpr std::ptrdiff_t bytes = 96 * 64 * 3;

    [[nodiscard]] ImageView viewOf(size_t place) const {
        ImageView view;
        view.height = 64;
        view.width = 96;
        view.planes[0] = memory.data() + static_cast<std::ptrdiff_t>(place) * bytes;
        view.strides[0] = 3 * 96;
        return view;
    }

    [[nodiscard]] int numberAt(size_t place) const {
        return test::readPictureNumber(viewOf(place).planes[0], 96, 64);
    }

    test::GuardedMemory memory{5 * bytes};
};

TEST_F(FramesIntoMemory, LieInThePlacesOfTheList) {
    FrameReader reader = open({});
    std::vector<size_t> told;
    reader.readFramesInto(
        {20, 3, 20, 0, 4}, [this](size_t place) { return viewOf(place); },
        [&](size_t place, const FrameReader::Picture& picture) {
            EXPECT_TRUE(picture.image.empty());
            told.push_back(place);
            return true;
        });
    EXPECT_EQ(numberAt(0), 20);
    EXPECT_EQ(numberAt(1), 3);
    EXPECT_EQ(numberAt(2), 20);
    EXPECT_EQ(numberAt(3), 0);
    EXPECT_EQ(numberAt(4), 4);
    EXPECT_THAT(told, testing::UnorderedElementsAre(0, 1, 2, 3, 4));
    EXPECT_LE(reader.counters().picturesConverted, 4);
}

TEST_F(FramesIntoMemory, OneByItself) {
    FrameReader reader = open({});
    const auto picture = reader.readFrameInto(11, viewOf(4));
    EXPECT_EQ(numberAt(4), 11);
    EXPECT_EQ(picture.number, 11);
    EXPECT_TRUE(picture.image.empty());
}

TEST_F(FramesIntoMemory, ARefusedCallWritesNothing) {
    FrameReader reader = open({});
    std::memset(memory.data(), 0x5A, memory.size());
    const auto place = [this](size_t at) { return viewOf(at); };
    EXPECT_THROW(reader.readFramesInto({1, 25}, place), tio::Exception);
    ImageView low = viewOf(0);
    low.height = 63;
    EXPECT_THAT(thrownText<tio::Exception>([&] { reader.readFrameInto(1, low); }),
                HasSubstr("96 x 64"));
    const auto unlike = [&](size_t at) { return at == 2 ? low : viewOf(at); };
    EXPECT_THROW(reader.readFramesInto({1, 2, 3}, unlike), tio::Exception);
    const auto failing = [&](size_t at) {
        if (at == 2)
            throw std::runtime_error("no more");
        return viewOf(at);
    };
    EXPECT_THROW(reader.readFramesInto({1, 2, 3}, failing), std::runtime_error);
    EXPECT_THROW(reader.readFramesInto({1, 2, 3}, {}), tio::Exception);
    EXPECT_TRUE(std::all_of(memory.data(), memory.data() + memory.size(),
                            [](uint8_t byte) { return byte == 0x5A; }));
    EXPECT_EQ(reader.counters().picturesConverted, 1);
}

// --- Sources and streams ---

TEST_F(FrameReaderPictures, ComeFromMemoryAlike) {
    const Image fromFile = open({}).readFrame(12).image;
    std::ifstream file(clip, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)), {});
    FrameReader reader(Source::memory(std::move(bytes)));
    const Image image = reader.readFrame(12).image;
    EXPECT_EQ(std::memcmp(image.data(), fromFile.data(), static_cast<size_t>(image.byteCount())),
              0);
    EXPECT_EQ(reader.frameCount(), 25);
}

TEST_F(FrameReaderPictures, AStreamThatIsNoVideoIsRefused) {
    ClipPlan plan;
    plan.audio = true;
    test::makeClip(clip, plan);
    FrameReaderOptions options;
    options.stream = 1;
    EXPECT_THAT(thrownText<tio::Exception>([&] { FrameReader(Source(clip), options); }),
                HasSubstr("no video"));
    options.stream = 7;
    EXPECT_THAT(thrownText<tio::Exception>([&] { FrameReader(Source(clip), options); }),
                HasSubstr("does not exist"));
    options.stream = 0;
    EXPECT_EQ(FrameReader(Source(clip), options).stream(), 0);
}

TEST_F(FrameReaderPictures, OfASizeThatDoesNotExistAreRefused) {
    test::makeClip(clip, {});
    FrameReaderOptions options;
    options.height = 20;
    EXPECT_THROW(FrameReader(Source(clip), options), tio::Exception);
}

TEST_F(FrameReaderPictures, ComeByAnIndexThatWasSentAsBytes) {
    FrameReader reader = open({});
    FrameReaderOptions options;
    const std::vector<uint8_t> bytes = reader.index().toBytes();
    options.index = FrameIndex::fromBytes(bytes);
    FrameReader other(Source(clip), options);
    EXPECT_EQ(other.ticks(), reader.ticks());
    EXPECT_EQ(numberIn(other.readFrame(19).image), 19);
    EXPECT_EQ(other.index().toBytes(), bytes);
}

TEST_F(FrameReaderPictures, NoDamagedBytesBecomeAnIndex) {
    std::vector<uint8_t> bytes = open({}).index().toBytes();
    EXPECT_THROW(static_cast<void>(FrameIndex::fromBytes({})), tio::Exception);
    EXPECT_THROW(static_cast<void>(FrameIndex::fromBytes({bytes.begin(), bytes.end() - 1})),
                 tio::Exception);
    for (size_t at = 0; at < bytes.size(); at += 7) {
        bytes[at] ^= 0x40;
        EXPECT_THROW(static_cast<void>(FrameIndex::fromBytes(bytes)), tio::Exception) << at;
        bytes[at] ^= 0x40;
    }
}

// --- Processes ---

class ForkedReader : public FrameReaderPictures, public testing::WithParamInterface<int> {
protected:
    /// Whether all goes well in a child process, which ends without running anything else.
    template <typename Action>
    static bool inChild(Action&& action) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(60); // ends a child that hangs
            ::_exit(action() ? 0 : 1);
        }
        int status = 0;
        return ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
               WEXITSTATUS(status) == 0;
    }
};

TEST_P(ForkedReader, ReadsOnInEveryProcess) {
    FrameReaderOptions options;
    options.threads = GetParam();
    ClipPlan plan;
    plan.frameCount = 60;
    auto reader = std::make_unique<FrameReader>(open(plan, options));
    ASSERT_EQ(numberIn(reader->readFrame(30).image), 30);
    const auto readsAll = [&] {
        for (const int64_t frame : {31, 5, 59, 30, 0})
            if (numberIn(reader->readFrame(frame).image) != frame)
                return false;
        return true;
    };
    EXPECT_TRUE(inChild([&] { return readsAll() && inChild(readsAll); }));
    EXPECT_TRUE(inChild([&] { // also by ending it
        const bool well = readsAll();
        reader.reset();
        return well;
    }));
    EXPECT_TRUE(inChild([&] {
        reader.reset();
        return true;
    }));
    EXPECT_TRUE(readsAll());
}

INSTANTIATE_TEST_SUITE_P(Threads, ForkedReader, testing::Values(0, 1, 2, 8));

} // namespace
} // namespace tio::ffmpeg
