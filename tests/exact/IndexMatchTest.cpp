#include "IndexMatchFixture.h"
#include "base/handles.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Ffmpeg.h"
#include "support/ReaderPictures.h"
#include "support/ScriptedStream.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/FrameReader.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/stat.h>

namespace tio::ffmpeg {
namespace {

namespace fs = std::filesystem;

using test::ClipPlan;
using test::IndexMatchTest;
using testing::HasSubstr;
using Bytes = std::vector<uint8_t>;
using Match = FrameIndex::Match;

// ---- the same bytes elsewhere
// -------------------------------------------------------------------

TEST_F(IndexMatchTest, IsFreshForACopyUnderAnotherNameAndDate) {
    const FrameIndex index = build();
    const std::string copy = folder.file("elsewhere.bin");
    fs::copy_file(clip, copy);
    fs::last_write_time(copy, fs::last_write_time(clip) - std::chrono::hours(1000));
    EXPECT_EQ(index.match(Source(copy)), Match::Fresh);
    EXPECT_EQ(index.match(Source("file:" + copy)), Match::Fresh);
}

TEST_F(IndexMatchTest, IsFreshForTheSameBytesFromAnyKindOfSource) {
    enlargeTo(900001);
    const Bytes bytes = test::readBytes(clip);
    const std::vector<Source> sources = {Source(clip), Source::memory(bytes),
                                         Source::borrowed(bytes.data(), bytes.size()),
                                         streamed(bytes)};
    for (const Source& from : sources) {
        const FrameIndex index = FrameIndex::build(from);
        for (const Source& to : sources)
            EXPECT_EQ(index.match(to), Match::Fresh) << from.name() << ", " << to.name();
    }
}

TEST_F(IndexMatchTest, IsTheSameWhateverItIsMadeFrom) {
    const Bytes bytes = test::readBytes(clip);
    const Bytes expected = build().toBytes();
    EXPECT_EQ(FrameIndex::build(Source::memory(bytes)).toBytes(), expected);
    EXPECT_EQ(FrameIndex::build(streamed(bytes)).toBytes(), expected);
    EXPECT_EQ(FrameIndex::build(std::make_shared<InputFormatContext>(clip)).toBytes(), expected);
}

TEST_F(IndexMatchTest, IsFreshAfterItWasSentAsBytes) {
    const FrameIndex index = FrameIndex::fromBytes(build().toBytes());
    EXPECT_EQ(index.match(Source::memory(test::readBytes(clip))), Match::Fresh);
}

TEST_F(IndexMatchTest, IsLoadedForAClipInMemory) {
    const std::string path = folder.file("index");
    build().save(path);
    const Source copy = Source::memory(test::readBytes(clip));
    const auto loaded = FrameIndex::load(path, std::make_shared<InputFormatContext>(copy));
    EXPECT_EQ(loaded.match, Match::Fresh);
    ASSERT_TRUE(loaded.index.has_value());
    EXPECT_EQ(loaded.index->frameCount(), 25);
}

TEST_F(IndexMatchTest, ReadsFewBytesOfALongClip) {
    enlargeTo(5000000);
    const FrameIndex index = build();
    int64_t taken = 0;
    test::ScriptedStream::Script script;
    script.bytes = test::readBytes(clip);
    script.read = [&taken](int64_t, int64_t, int64_t honest) {
        taken += honest;
        return honest;
    };
    EXPECT_EQ(index.match(test::scriptedSource(script)), Match::Fresh);
    EXPECT_LE(taken, 400000);
}

TEST_F(IndexMatchTest, OpensNoStreamOnceMoreToKnowIt) {
    const Bytes bytes = test::readBytes(clip);
    const FrameIndex index = FrameIndex::build(Source::memory(bytes));
    int openings = 0;
    const auto script = std::make_shared<test::ScriptedStream::Script>();
    script->bytes = bytes;
    const Source source = Source::streams(
        [&openings, script] {
            ++openings;
            return std::make_unique<test::ScriptedStream>(script);
        },
        "counted");
    FrameReader reader = open(source, index);
    EXPECT_EQ(openings, 1 + reader.counters().sourceOpenings);
    EXPECT_EQ(reader.frameCount(), 25);
    EXPECT_EQ(reader.readFrame(19).number, 19);
}

TEST_F(IndexMatchTest, LeavesAnInputWhereItStood) {
    const auto input = std::make_shared<InputFormatContext>(streamed(test::readBytes(clip)));
    const detail::PacketHandle packet(av_packet_alloc());
    std::vector<int64_t> sizes;
    while (input->getNextPacketForStream(packet.get(), 0)) {
        sizes.push_back(packet->size);
        av_packet_unref(packet.get());
        if (sizes.size() == 5)
            static_cast<void>(FrameIndex::build(input));
    }
    std::vector<int64_t> expected;
    InputFormatContext alone(clip);
    while (alone.getNextPacketForStream(packet.get(), 0)) {
        expected.push_back(packet->size);
        av_packet_unref(packet.get());
    }
    EXPECT_EQ(sizes, expected);
}

// ---- other bytes
// --------------------------------------------------------------------------------

TEST_F(IndexMatchTest, IsStaleForAnyChangedByteOfAShortClip) {
    enlargeTo(385024); // two blocks of 65536 and 31 samples of 8192 bytes: up to here all is seen
    const FrameIndex index = build();
    Bytes bytes = test::readBytes(clip);
    for (size_t at = 0; at < bytes.size(); at += 4093) {
        bytes[at] ^= 1;
        const Match match = index.match(Source::borrowed(bytes.data(), bytes.size()));
        ASSERT_EQ(match, Match::Stale) << "byte " << at;
        bytes[at] ^= 1;
    }
    EXPECT_EQ(index.match(Source::borrowed(bytes.data(), bytes.size())), Match::Fresh);
}

TEST_F(IndexMatchTest, IsStaleForTheSmallestChangedParts) {
    const FrameIndex index = build();
    Bytes bytes = test::readBytes(clip);
    for (const size_t at : {size_t{0}, bytes.size() / 2, bytes.size() - 1}) {
        bytes[at] ^= 1;
        EXPECT_EQ(index.match(Source::borrowed(bytes.data(), bytes.size())), Match::Stale) << at;
        bytes[at] ^= 1;
    }
}

TEST_F(IndexMatchTest, IsStaleWhenTheMiddleOfALongClipIsOther) {
    enlargeTo(5000000);
    const FrameIndex index = build();
    Bytes bytes = test::readBytes(clip);
    bytes[bytes.size() / 2] ^= 1;
    EXPECT_EQ(index.match(Source::memory(bytes)), Match::Stale);
}

TEST_F(IndexMatchTest, IsStaleWhenTheClipIsLongerOrShorter) {
    const FrameIndex index = build();
    Bytes bytes = test::readBytes(clip);
    bytes.push_back(0);
    EXPECT_EQ(index.match(Source::memory(bytes)), Match::Stale);
    bytes.resize(bytes.size() - 2);
    EXPECT_EQ(index.match(Source::memory(bytes)), Match::Stale);
}

TEST_F(IndexMatchTest, IsForeignForAnotherClip) {
    const FrameIndex index = build();
    const std::string other = folder.file("other.mp4");
    ClipPlan plan;
    plan.encoderOptions = {{"crf", "40"}};
    test::makeClip(other, plan);
    EXPECT_EQ(index.match(Source(other)), Match::Foreign);
    EXPECT_EQ(index.match(Source::memory(Bytes{})), Match::Foreign);
}

// ---- what nothing is known of
// -------------------------------------------------------------------

TEST_F(IndexMatchTest, TellsThatAFileIsNotThere) {
    const FrameIndex index = build();
    const std::string missing = folder.file("missing");
    try {
        static_cast<void>(index.match(Source(missing)));
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Exception& failure) {
        EXPECT_EQ(failure.code(), -ENOENT);
        EXPECT_EQ(std::string(failure.what()),
                  "Could not identify \"" + missing + "\": No such file or directory");
    }
}

TEST_F(IndexMatchTest, RefusesWhatIsNoFile) {
    const FrameIndex index = build();
    const std::string pipe = folder.file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(
        test::thrownText<tio::Exception>([&] { static_cast<void>(index.match(Source(pipe))); }),
        "Could not identify \"" + pipe + "\": it is no file that can be read");
    const std::string directory = folder.path();
    EXPECT_EQ(
        test::thrownText<Exception>([&] { static_cast<void>(index.match(Source(directory))); }),
        "Could not identify \"" + directory + "\": Is a directory");
}

TEST_F(IndexMatchTest, GoesByTheStreamWhereTheSizeIsUnknown) {
    const Source source = unsized(test::readBytes(clip));
    const FrameIndex index = FrameIndex::build(source);
    EXPECT_EQ(index.frameCount(), 25);
    EXPECT_EQ(index.match(Source(clip)), Match::Foreign);
    EXPECT_THROW(static_cast<void>(build().match(source)), tio::Exception);
    EXPECT_EQ(open(source, index).readFrame(7).number, 7);
    EXPECT_EQ(open(source, build()).readFrame(7).number, 7);
    EXPECT_THROW(index.save(folder.file("index")), tio::Exception);
    EXPECT_FALSE(fs::exists(folder.file("index")));
}

TEST_F(IndexMatchTest, TellsWhatAStreamDoesWrong) {
    const FrameIndex index = build();
    const Bytes bytes = test::readBytes(clip);
    const auto refusal = [&](const std::function<void(test::ScriptedStream::Script&)>& spoil) {
        test::ScriptedStream::Script script;
        script.bytes = bytes;
        spoil(script);
        try {
            static_cast<void>(index.match(test::scriptedSource(script)));
        } catch (const Exception& failure) {
            return std::string(failure.what());
        }
        return std::string("nothing was thrown");
    };
    const std::string start = "Reading \"scripted clip\" failed: ";
    EXPECT_THAT(
        refusal([](auto& script) { script.size = [](int64_t honest) { return honest + 1; }; }),
        HasSubstr(start + "it gave 0 bytes"));
    EXPECT_THAT(refusal([](auto& script) {
                    script.read = [](int64_t, int64_t count, int64_t) { return count + 1; };
                }),
                HasSubstr(start + "it gave "));
    EXPECT_THAT(refusal([](auto& script) {
                    script.seek = [](int64_t) { throw std::runtime_error("no way"); };
                }),
                HasSubstr(start + "no way"));
    EXPECT_THAT(refusal([](auto& script) {
                    script.size = [](int64_t) -> int64_t { throw std::runtime_error("no size"); };
                }),
                HasSubstr(start + "no size"));
}

TEST_F(IndexMatchTest, TakesAStreamThatAnswersInSmallPieces) {
    const FrameIndex index = build();
    test::ScriptedStream::Script script;
    script.bytes = test::readBytes(clip);
    script.read = [](int64_t, int64_t, int64_t honest) { return std::min<int64_t>(honest, 7); };
    EXPECT_EQ(index.match(test::scriptedSource(script)), Match::Fresh);
}

// ---- readers
// ------------------------------------------------------------------------------------

TEST_F(IndexMatchTest, LetsAReaderReadACopy) {
    FrameReader reader = open(Source::memory(test::readBytes(clip)), build());
    const Image picture = reader.readFrame(14).image;
    EXPECT_EQ(test::readPictureNumber(picture.data(), picture.width(), picture.height()), 14);
}

TEST_F(IndexMatchTest, LetsNoReaderReadAnotherClip) {
    const FrameIndex index = build();
    const std::string other = folder.file("other.mp4");
    ClipPlan plan;
    plan.encoderOptions = {{"crf", "40"}};
    test::makeClip(other, plan);
    EXPECT_EQ(test::thrownText<IndexMismatch>([&] { open(Source(other), index); }),
              "The index is not that of \"" + other + "\"");
    FrameReaderOptions options;
    options.index = index;
    EXPECT_THROW(test::openReader(other, options), IndexMismatch);
}

TEST_F(IndexMatchTest, LetsNoReaderReadAClipThatHasChanged) {
    const FrameIndex index = build();
    test::flipBytes(clip, test::findPacket(clip, 20).offset + 40, 1);
    EXPECT_EQ(test::thrownText<IndexMismatch>([&] { open(Source(clip), index); }),
              "The index is not that of \"" + clip + "\", which has changed since");
}

// Where the size is unknown, the packets themselves have the last word.
TEST_F(IndexMatchTest, LetsNoReaderGiveAPictureOfASourceThatHasChanged) {
    ClipPlan plan;
    plan.frameCount = 100;
    plan.gopSize = 50;
    test::makeClip(clip, plan);
    const FrameIndex index = FrameIndex::build(unsized(test::readBytes(clip)));
    plan.encoderOptions = {{"crf", "40"}};
    test::makeClip(clip, plan);
    FrameReader reader = open(unsized(test::readBytes(clip)), index);
    EXPECT_THAT(test::thrownText<tio::Exception>([&] { static_cast<void>(reader.readFrame(60)); }),
                HasSubstr("the source is not as it was when it was indexed"));
}

// ---- which stream
// -------------------------------------------------------------------------------

class IndexOfStreamTest : public IndexMatchTest {
protected:
    void SetUp() override {
        ClipPlan shorter;
        shorter.frameCount = 12;
        test::writePackets(clip, "matroska", {test::encodeVideo({}), test::encodeVideo(shorter)});
    }

    static FrameIndex buildOf(const Source& source, int stream) {
        FrameIndexOptions options;
        options.stream = stream;
        return FrameIndex::build(source, options);
    }
};

TEST_F(IndexOfStreamTest, IsThatOfTheStreamAskedFor) {
    EXPECT_EQ(buildOf(Source(clip), 0).frameCount(), 25);
    EXPECT_EQ(buildOf(Source(clip), 1).frameCount(), 12);
}

TEST_F(IndexOfStreamTest, ServesReadersOfThatStreamAlone) {
    FrameReaderOptions options;
    options.index = buildOf(Source(clip), 1);
    options.stream = 1;
    EXPECT_EQ(FrameReader(Source(clip), options).frameCount(), 12);
    options.stream = 0;
    EXPECT_THROW(FrameReader(Source(clip), options), IndexMismatch);
}

TEST_F(IndexOfStreamTest, IsRefusedWhereThereIsNone) {
    EXPECT_EQ(
        test::thrownText<tio::Exception>([&] { static_cast<void>(buildOf(Source(clip), 2)); }),
        "Stream 2 of \"" + clip + "\" does not exist");
    EXPECT_EQ(
        test::thrownText<tio::Exception>([&] { static_cast<void>(buildOf(Source(clip), -1)); }),
        "Stream -1 of \"" + clip + "\" does not exist");
}

} // namespace
} // namespace tio::ffmpeg
